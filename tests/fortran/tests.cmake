# The Fortran twins, called by Fortran programs.
if(NOT MORVA_HAVE_FORTRAN)
    return()
endif()
if(MORVA_SANITIZE AND NOT CMAKE_CXX_COMPILER_ID STREQUAL CMAKE_Fortran_COMPILER_ID)
    message(STATUS "Fortran and C++ compilers have different sanitizers: the Fortran tests are left out")
    return()
endif()
set(fortran_tests "${CMAKE_SOURCE_DIR}/tests/fortran")
set(fortran_work "${CMAKE_BINARY_DIR}/tests/fortran")

# morva_fortran_program(NAME SOURCES FLAG...)
function(morva_fortran_program name sources)
    add_executable(${name} ${sources})
    target_link_libraries(${name} PRIVATE morva)
    target_compile_options(${name} PRIVATE -Wall -Wextra $<$<BOOL:${MORVA_WERROR}>:-Werror> ${ARGN})
    if(MORVA_SANITIZE)
        target_link_options(${name} PRIVATE "-fsanitize=${MORVA_SANITIZE}")
    endif()
    if(MORVA_COVERAGE)
        target_link_options(${name} PRIVATE --coverage)
    endif()
    set_target_properties(${name} PROPERTIES Fortran_MODULE_DIRECTORY "${fortran_work}/${name}")
endfunction()

# morva_fortran_end(NAME STDERR COMMAND...): the command ends with status 1 and these words.
function(morva_fortran_end name words)
    add_test(NAME ${name} COMMAND sh -c
        "said=$(\"$@\" 2>&1) ; status=$? ; printf '%s' \"$said\" ; test $status = 1 && test \"$said\" = \"$(printf '${words}')\""
        sh ${ARGN})
endfunction()

morva_fortran_program(fortran_twins "${MORVA_FORTRAN_MODULE};${fortran_tests}/twins.f90" -std=f2018
    -Wno-compare-reals)
set_target_properties(fortran_twins PROPERTIES OUTPUT_NAME twins)
add_test(NAME fortran.twins COMMAND fortran_twins "${fortran_work}/files")
set_tests_properties(fortran.twins PROPERTIES ENVIRONMENT "MORVAPATH=${fortran_work}/files;TZ=UTC;UNITS=${CMAKE_SOURCE_DIR}/data/units"
    PASS_REGULAR_EXPRESSION "^ 1403613015.500  2014175 Jun 24,2014 12:30:15.500\n$")
morva_fortran_end(fortran.die
    "prog: no instrument answers\\nprog: this was heard\\nprog: nor does a second\\nprog *fatal*: giving up\\n"
    $<TARGET_FILE:fortran_twins> die)

foreach(style IN ITEMS one two)
    set(flag $<$<STREQUAL:${style},two>:-fsecond-underscore>)
    morva_fortran_program(fortran_${style} "${fortran_tests}/names.f90" ${flag})
    morva_fortran_end(fortran.${style} "names: complained\\nnames *fatal*: ended\\n"
        $<TARGET_FILE:fortran_${style}>)
endforeach()
