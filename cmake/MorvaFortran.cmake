# The Fortran module and the Fortran compiler.
#
# The interfaces of the module are made from abi/fortran.sigs: the C declaration of a twin says all
# that Fortran needs to know. The hidden lengths at the end are the compiler's affair.

# Rows of a pattern for a C parameter and the Fortran declaration of it; the last group of the pattern
# is its name.
set(kinds
    "const char \\*strings|character(len=*), intent(in) :: strings(*)"
    "const char \\*(.+)|character(len=*), intent(in) :: NAME"
    "char \\*(.+)|character(len=*), intent(inout) :: NAME"
    "const int32_t \\*samples|integer(c_int32_t), intent(in) :: samples(*)"
    "int32_t \\*samples|integer(c_int32_t), intent(inout) :: samples(*)"
    "int32_t \\*(.+)|integer(c_int32_t), intent(inout) :: NAME"
    "const int64_t \\*(.+)|integer(c_int64_t), intent(in) :: NAME"
    "int64_t \\*(.+)|integer(c_int64_t), intent(inout), optional :: NAME"
    "const struct DateTime \\*(.+)|type(datetime), intent(in) :: NAME"
    "struct DateTime \\*(.+)|type(datetime), intent(inout) :: NAME"
    "const int \\*(.+)|integer(c_int), intent(in) :: NAME"
    "int \\*(.+)|integer(c_int), intent(inout) :: NAME"
    "const long \\*(.+)|integer(c_long), intent(in) :: NAME"
    "long \\*(.+)|integer(c_long), intent(inout) :: NAME"
    "const double \\*(fractions|scale)|real(c_double), intent(in) :: NAME(*)"
    "double \\*(quantiles|range)|real(c_double), intent(inout) :: NAME(*)"
    "const double \\*(.+)|real(c_double), intent(in) :: NAME"
    "double \\*(.+)|real(c_double), intent(inout) :: NAME"
    "const intptr_t \\*(.+)|integer(handle), intent(in) :: NAME"
    "const void \\*bcd|type(*), intent(in) :: bcd(*)"
    "void \\*bcd|type(*), intent(inout) :: bcd(*)"
    "const void \\*(.+)|type(*), intent(in), optional :: NAME"
    "void \\*(.+)|type(*), optional :: NAME"
    "[A-Za-z]+ \\*const \\*(.+)|integer(handle), intent(in) :: NAME"
    "[A-Za-z]+ \\*\\*(.+)|integer(handle), intent(inout) :: NAME"
    "Fortran_free (.+)|procedure(), optional :: NAME"
    "Fortran_dup (.+)|procedure(integer(handle)), optional :: NAME"
    "[A-Za-z_]+ (.+)|procedure(integer(c_int)), optional :: NAME")
set(results
    "int |integer(c_int)" "long |integer(c_long)" "double |real(c_double)" "intptr_t |integer(handle)"
    "void \\*|type(c_ptr)" "[A-Za-z]+ \\*|integer(handle)")

# morva_translate(OUT TEXT ROW...): the right side of the first row whose pattern is TEXT.
function(morva_translate out text)
    foreach(row IN LISTS ARGN)
        string(FIND "${row}" "|" bar REVERSE)
        string(SUBSTRING "${row}" 0 ${bar} pattern)
        math(EXPR bar "${bar} + 1")
        string(SUBSTRING "${row}" ${bar} -1 declaration)
        if(text MATCHES "^${pattern}$")
            string(REPLACE "NAME" "${CMAKE_MATCH_1}" declaration "${declaration}")
            set(${out} "${declaration}" PARENT_SCOPE)
            return()
        endif()
    endforeach()
    message(FATAL_ERROR "abi/fortran.sigs: no Fortran for '${text}'")
endfunction()

# morva_interface(OUT LINE): the interface body of one C declaration.
function(morva_interface out line)
    string(REGEX MATCH "^(.*[ *])([a-z0-9_]+)_\\((.*)\\)$" matched "${line}")
    set(result "${CMAKE_MATCH_1}")
    set(name "${CMAKE_MATCH_2}")
    string(REPLACE ", " ";" parameters "${CMAKE_MATCH_3}")
    list(FILTER parameters EXCLUDE REGEX "^(size_t .*|void)$")
    set(names "")
    set(body "            import\n")
    foreach(parameter IN LISTS parameters)
        morva_translate(declaration "${parameter}" ${kinds})
        string(APPEND body "            ${declaration}\n")
        string(REGEX MATCH "[a-z0-9_]+$" parameter_name "${parameter}")
        list(APPEND names "${parameter_name}")
    endforeach()
    list(JOIN names ", " names)
    if(result STREQUAL "void ")
        set(kind subroutine)
    else()
        set(kind function)
        morva_translate(type "${result}" ${results})
        string(APPEND body "            ${type} :: ${name}\n")
    endif()
    set(${out} "        ${kind} ${name}(${names})\n${body}        end ${kind}\n" PARENT_SCOPE)
endfunction()

set(MORVA_INTERFACES "")
set(signatures "${CMAKE_SOURCE_DIR}/abi/fortran.sigs")
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${signatures}")
file(STRINGS "${signatures}" lines)
list(FILTER lines EXCLUDE REGEX "__\\(|^#|^$")
foreach(line IN LISTS lines)
    morva_interface(body "${line}")
    string(APPEND MORVA_INTERFACES "${body}")
endforeach()
set(MORVA_FORTRAN_MODULE "${CMAKE_BINARY_DIR}/bindings/fortran/morva.f90")
configure_file("${CMAKE_SOURCE_DIR}/bindings/fortran/morva.f90.in" "${MORVA_FORTRAN_MODULE}" @ONLY)

set(MORVA_HAVE_FORTRAN FALSE)
if(MORVA_FORTRAN)
    include(CheckLanguage)
    check_language(Fortran)
    if(CMAKE_Fortran_COMPILER)
        enable_language(Fortran)
        set(MORVA_HAVE_FORTRAN TRUE)
    else()
        message(STATUS "No Fortran compiler: the tests of the Fortran twins are left out")
    endif()
endif()
