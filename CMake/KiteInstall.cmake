# Installs the library, its headers and a package file, so that a host says find_package(Kite).

include(CMakePackageConfigHelpers)

install(TARGETS kite EXPORT KiteTargets FILE_SET HEADERS)
install(TARGETS kite_legacyarchive EXPORT KiteTargets)
install(EXPORT KiteTargets NAMESPACE Kite:: FILE KiteTargets.cmake DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Kite)
configure_package_config_file(CMake/KiteConfig.cmake.in KiteConfig.cmake
                              INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Kite)
write_basic_package_version_file(KiteConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/KiteConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/KiteConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Kite)

# kite_install_component(COMPONENT TARGET): a library for some hosts only, which find_package(Kite COMPONENTS COMPONENT) finds.
function(kite_install_component component target)
  install(TARGETS ${target} EXPORT Kite${component}Targets FILE_SET HEADERS)
  install(EXPORT Kite${component}Targets NAMESPACE Kite:: FILE Kite${component}Targets.cmake
          DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Kite)
endfunction()
