# Installation into a root of bin, lib, include, data and share, package files for other builds, and
# the way back. Everything is relocatable: programs and libraries find each other by $ORIGIN, and the
# package files start from where they lie.
include(CMakePackageConfigHelpers)

add_library(morva::morva ALIAS morva)
add_library(morva::skerrows ALIAS skerrows)

set_target_properties(morva skerrows PROPERTIES INSTALL_RPATH "$ORIGIN")
install(TARGETS morva skerrows EXPORT morvaTargets LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}")
if(TARGET wfreport)
    file(RELATIVE_PATH lib_from_bin "/${CMAKE_INSTALL_BINDIR}" "/${CMAKE_INSTALL_LIBDIR}")
    get_property(programs GLOBAL PROPERTY MORVA_EXAMPLE_PROGRAMS)
    set_target_properties(${programs} morva_command PROPERTIES INSTALL_RPATH "$ORIGIN/${lib_from_bin}")
    install(TARGETS ${programs} morva_command RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")
endif()

install(DIRECTORY "${CMAKE_SOURCE_DIR}/include/" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}"
    FILES_MATCHING PATTERN "*.h")
if(MORVA_FORTRAN_MODULE)
    install(FILES "${MORVA_FORTRAN_MODULE}" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")
endif()
if(EXISTS "${CMAKE_SOURCE_DIR}/data")
    install(DIRECTORY "${CMAKE_SOURCE_DIR}/data/" DESTINATION data)
endif()
install(FILES "${CMAKE_SOURCE_DIR}/LICENSE" "${CMAKE_SOURCE_DIR}/README.md"
    DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/morva")

# CMake package: find_package(morva), target morva::morva.
set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/morva")
set(package_build_dir "${CMAKE_BINARY_DIR}/package")
configure_package_config_file("${CMAKE_SOURCE_DIR}/cmake/morvaConfig.cmake.in"
    "${package_build_dir}/morvaConfig.cmake" INSTALL_DESTINATION "${package_dir}"
    NO_CHECK_REQUIRED_COMPONENTS_MACRO)
write_basic_package_version_file("${package_build_dir}/morvaConfigVersion.cmake"
    COMPATIBILITY SameMajorVersion)
install(FILES "${package_build_dir}/morvaConfig.cmake" "${package_build_dir}/morvaConfigVersion.cmake"
    DESTINATION "${package_dir}")
install(EXPORT morvaTargets NAMESPACE morva:: DESTINATION "${package_dir}")

# pkg-config file.
file(RELATIVE_PATH root_from_pc "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
string(REGEX REPLACE "/$" "" root_from_pc "${root_from_pc}")
configure_file("${CMAKE_SOURCE_DIR}/packaging/morva.pc.in" "${package_build_dir}/morva.pc" @ONLY)
install(FILES "${package_build_dir}/morva.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")

if(NOT TARGET uninstall)
    add_custom_target(uninstall
        COMMAND "${CMAKE_COMMAND}" "-DMANIFEST=${CMAKE_BINARY_DIR}/install_manifest.txt"
            -P "${CMAKE_SOURCE_DIR}/cmake/uninstall.cmake"
        COMMENT "Removing what was installed" VERBATIM)
endif()
