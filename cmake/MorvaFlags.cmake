# Compiler and linker settings shared by every target: warnings, hardening, sanitizers.
add_library(morva_flags INTERFACE)
target_compile_options(morva_flags INTERFACE -Wall -Wextra -Wformat=2
    $<$<BOOL:${MORVA_WERROR}>:-Werror>)
if(MORVA_SANITIZE)
    target_compile_options(morva_flags INTERFACE -fsanitize=${MORVA_SANITIZE}
        -fno-sanitize-recover=all -fno-omit-frame-pointer)
    if(MORVA_SANITIZE MATCHES "undefined")
        # Three checks would take half the time of compiling programs and tests (targets with the
        # property MORVA_PROGRAM); the library keeps them, where they matter.
        target_compile_options(morva_flags INTERFACE
            $<$<BOOL:$<TARGET_PROPERTY:MORVA_PROGRAM>>:-fno-sanitize=vptr,null,alignment>)
    endif()
    target_link_options(morva_flags INTERFACE -fsanitize=${MORVA_SANITIZE})
    if(MORVA_SANITIZE MATCHES "thread" AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        # The sanitizer does not follow fences; ours order stores to files that other processes map.
        target_compile_options(morva_flags INTERFACE -Wno-tsan)
    endif()
else()
    target_compile_options(morva_flags INTERFACE -fstack-protector-strong
        $<$<CONFIG:Release>:-D_FORTIFY_SOURCE=2>)
    if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
        target_compile_options(morva_flags INTERFACE -fcf-protection)
    endif()
    target_link_options(morva_flags INTERFACE -Wl,-z,relro,-z,now -Wl,--as-needed)
endif()
if(MORVA_COVERAGE)
    target_compile_options(morva_flags INTERFACE --coverage -O0)
    target_link_options(morva_flags INTERFACE --coverage)
endif()

# Sources of the two libraries: hidden by default, and calls between exported functions are direct.
add_library(morva_library_flags INTERFACE)
target_link_libraries(morva_library_flags INTERFACE morva_flags Threads::Threads)
target_compile_options(morva_library_flags INTERFACE -fno-semantic-interposition
    $<$<COMPILE_LANGUAGE:CXX>:-fvisibility-inlines-hidden> -fvisibility=hidden -fno-plt)
target_link_options(morva_library_flags INTERFACE -Wl,-Bsymbolic-functions)
if(NOT MORVA_SANITIZE)
    target_link_options(morva_library_flags INTERFACE -Wl,--no-undefined)
endif()
if(NOT MORVA_SANITIZE AND CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
    # The linker leaves the mark out because the C library's start files lack it; they never break
    # the pairing of calls and returns.
    target_link_options(morva_library_flags INTERFACE -Wl,-z,shstk)
endif()
