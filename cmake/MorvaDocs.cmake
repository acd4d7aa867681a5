# The target `docs`: the reference of the public headers, where Doxygen is installed.
find_program(DOXYGEN doxygen)
if(DOXYGEN)
    add_custom_target(docs
        COMMAND "${DOXYGEN}" docs/Doxyfile
        WORKING_DIRECTORY "${CMAKE_SOURCE_DIR}"
        COMMENT "Writing build/docs/html"
        VERBATIM)
endif()
