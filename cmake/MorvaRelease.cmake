# The texts by which announcements name the build: one small source, written again when the checkout
# moves to another commit, so that nothing else is compiled anew.
#
# The date is that of SOURCE_DATE_EPOCH when it is set, and else the commit's: two builds of a
# revision are the same, byte by byte.
set(MORVA_REVISION "" CACHE STRING "Revision of the source, 40 hexadecimal digits; empty: the checkout's")

# morva_release_source(OUT): the path of the source.
function(morva_release_source out)
    find_package(Git QUIET)
    set(moves "")
    if(GIT_FOUND AND EXISTS "${CMAKE_SOURCE_DIR}/.git")
        execute_process(COMMAND "${GIT_EXECUTABLE}" -c safe.directory=* rev-parse --git-path logs/HEAD
            WORKING_DIRECTORY "${CMAKE_SOURCE_DIR}" OUTPUT_VARIABLE log ERROR_QUIET
            OUTPUT_STRIP_TRAILING_WHITESPACE)
        get_filename_component(log "${log}" ABSOLUTE BASE_DIR "${CMAKE_SOURCE_DIR}")
        if(EXISTS "${log}" AND NOT IS_DIRECTORY "${log}")
            set(moves "${log}")
        endif()
    endif()
    set(source "${CMAKE_BINARY_DIR}/generated/release.cpp")
    set(script "${CMAKE_SOURCE_DIR}/cmake/release.cmake")
    add_custom_command(OUTPUT "${source}"
        COMMAND "${CMAKE_COMMAND}" "-DSOURCE=${CMAKE_SOURCE_DIR}" "-DOUTPUT=${source}"
            "-DVERSION=${PROJECT_VERSION}" "-DPLATFORM=${CMAKE_SYSTEM_NAME}-${CMAKE_SYSTEM_PROCESSOR}"
            "-DREVISION=${MORVA_REVISION}" "-DGIT=${GIT_EXECUTABLE}" "-DEPOCH=$ENV{SOURCE_DATE_EPOCH}"
            -P "${script}"
        DEPENDS "${script}" ${moves}
        COMMENT "Writing the release and revision texts" VERBATIM)
    set(${out} "${source}" PARENT_SCOPE)
endfunction()
