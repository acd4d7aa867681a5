# cmake -DSOURCE=DIR -DOUTPUT=FILE -DVERSION=N -DPLATFORM=NAME -DREVISION=... -DGIT=... -DEPOCH=... -P release.cmake
#
# Writes the source that holds the release and revision texts. What is not given comes from the
# checkout; without one, the revision is 0 and the date that of the change log.
cmake_minimum_required(VERSION 3.25)

# ask_git(OUT ARGUMENT...): what git says; empty when the source is no checkout of its own.
function(ask_git out)
    set(${out} "" PARENT_SCOPE)
    if(GIT AND EXISTS "${SOURCE}/.git")
        # The checkout may be another user's: nothing in it is run.
        execute_process(COMMAND "${GIT}" -c safe.directory=* ${ARGN} WORKING_DIRECTORY "${SOURCE}"
            OUTPUT_VARIABLE said ERROR_QUIET RESULT_VARIABLE status OUTPUT_STRIP_TRAILING_WHITESPACE)
        if(status EQUAL 0)
            set(${out} "${said}" PARENT_SCOPE)
        endif()
    endif()
endfunction()

if(NOT REVISION)
    ask_git(REVISION rev-parse HEAD)
endif()
string(TOLOWER "${REVISION}" REVISION)
string(LENGTH "${REVISION}" revision_length)
if(NOT REVISION)
    string(REPEAT 0 40 REVISION)
elseif(NOT REVISION MATCHES "^[0-9a-f]+$" OR NOT revision_length EQUAL 40)
    message(FATAL_ERROR "MORVA_REVISION: '${REVISION}' is no revision")
endif()

if(NOT EPOCH)
    ask_git(EPOCH show -s --format=%ct HEAD)
endif()
if(NOT EPOCH)
    file(TIMESTAMP "${SOURCE}/CHANGELOG.md" EPOCH "%s" UTC)
endif()
set(ENV{SOURCE_DATE_EPOCH} "${EPOCH}")
string(TIMESTAMP DATE "%Y-%m-%d" UTC)

set(PRODUCT libmorva)
configure_file("${SOURCE}/cmake/release.cpp.in" "${OUTPUT}" @ONLY)
file(TOUCH "${OUTPUT}")
