# What users meet: the headers, the exported names, the installed files, and programs built on them.
set(consumers "${CMAKE_SOURCE_DIR}/tests/consumers")
set(consumers_work "${CMAKE_BINARY_DIR}/tests/consumers")
set(headers "${CMAKE_SOURCE_DIR}/include")

# morva_check(NAME SCRIPT ARGUMENT...)
function(morva_check name script)
    add_test(NAME ${name} COMMAND "${consumers}/${script}" ${ARGN})
    set_tests_properties(${name} PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT 300)
endfunction()

# The lists of abi/ in the form that the checks read: names a line, and a C source that declares
# everything a second time.
get_property(morva_names GLOBAL PROPERTY MORVA_EXPORTS)
get_property(skerrows_names GLOBAL PROPERTY SKERROWS_EXPORTS)
get_property(morva_declarations GLOBAL PROPERTY MORVA_DECLARATIONS)
get_property(skerrows_declarations GLOBAL PROPERTY SKERROWS_DECLARATIONS)
list(JOIN morva_names "\n" morva_lines)
list(JOIN skerrows_names "\n" skerrows_lines)
file(WRITE "${consumers_work}/morva.names" "${morva_lines}\n")
file(WRITE "${consumers_work}/skerrows.names" "${skerrows_lines}\n")
file(WRITE "${consumers_work}/all.names" "${morva_lines}\n${skerrows_lines}\n")
file(WRITE "${consumers_work}/declarations.c"
    "#include \"morva.h\"\n#include \"skerrows.h\"\n${morva_declarations}${skerrows_declarations}")

morva_check(abi.declarations abi.sh declarations "${CMAKE_C_COMPILER}" "${headers}"
    "${consumers_work}/declarations.c")
morva_check(abi.listed abi.sh listed "${CMAKE_C_COMPILER}" "${headers}" "${consumers_work}/all.names")
morva_check(abi.headers abi.sh headers "${CMAKE_C_COMPILER}" "${CMAKE_CXX_COMPILER}" "${headers}")

# The rest looks at libraries as they are shipped.
if(MORVA_SANITIZE OR MORVA_COVERAGE)
    return()
endif()
morva_check(abi.exports.morva abi.sh exports $<TARGET_FILE:morva> "${consumers_work}/morva.names")
morva_check(abi.exports.skerrows abi.sh exports $<TARGET_FILE:skerrows> "${consumers_work}/skerrows.names")

# Installed under a component's name, so that the list of files of a real installation, which
# `uninstall` reads, stays as it is.
set(root "${consumers_work}/root")
add_test(NAME consumers.install COMMAND "${CMAKE_COMMAND}" --install "${CMAKE_BINARY_DIR}"
    --component Unspecified --prefix "${root}")
morva_check(consumers.removed consumer.sh removed "${CMAKE_SOURCE_DIR}/cmake/uninstall.cmake" "${root}"
    "${consumers_work}/removed" "${CMAKE_COMMAND}"
    "${CMAKE_BINARY_DIR}/install_manifest_Unspecified.txt")
set_tests_properties(consumers.install PROPERTIES FIXTURES_SETUP morva_root)
set_tests_properties(consumers.removed PROPERTIES FIXTURES_CLEANUP morva_root)

# morva_consumer(TASK [TOOL])
function(morva_consumer task)
    morva_check(consumers.${task} consumer.sh ${task} "${consumers}" "${root}"
        "${consumers_work}/${task}" ${ARGN})
    set_tests_properties(consumers.${task} PROPERTIES FIXTURES_REQUIRED morva_root)
endfunction()
morva_consumer(c "${CMAKE_C_COMPILER}")
morva_consumer(readme "${CMAKE_C_COMPILER}" "${CMAKE_CXX_COMPILER}")
morva_consumer(cmake "${CMAKE_COMMAND}" "${CMAKE_GENERATOR}" "${CMAKE_CXX_COMPILER}")
if(TARGET wfreport)
    morva_consumer(moved)
endif()
if(MORVA_HAVE_FORTRAN)
    morva_consumer(fortran "${CMAKE_Fortran_COMPILER}")
endif()
set(needed libskerrows libstdc++ libgcc_s libm libc libz)
foreach(library IN ITEMS libmorva libskerrows)
    morva_check(abi.artefact.${library} abi.sh artefact "${root}/lib/${library}.so.${PROJECT_VERSION}" ${needed})
    set_tests_properties(abi.artefact.${library} PROPERTIES FIXTURES_REQUIRED morva_root)
endforeach()
