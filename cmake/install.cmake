# Installs the shared library, the public headers, qrvutil.pc and a CMake
# package so that consumers can use find_package(qrvutil) or pkg-config.
include(CMakePackageConfigHelpers)

install(TARGETS qrvutil EXPORT qrvutilTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/qrvutil
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")
install(FILES ${PROJECT_BINARY_DIR}/include/qrvutil/version.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/qrvutil)

set(QRV_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/qrvutil)
install(EXPORT qrvutilTargets NAMESPACE qrvutil:: DESTINATION ${QRV_CMAKE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/qrvutilConfig.cmake.in
  ${PROJECT_BINARY_DIR}/qrvutilConfig.cmake INSTALL_DESTINATION ${QRV_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/qrvutilConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/qrvutilConfig.cmake
  ${PROJECT_BINARY_DIR}/qrvutilConfigVersion.cmake DESTINATION ${QRV_CMAKE_DIR})

# The .pc file finds its prefix from its own place, so an installed tree
# may be moved (or installed with --prefix) and still be found.
file(RELATIVE_PATH QRV_PC_TO_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" QRV_PC_TO_PREFIX "${QRV_PC_TO_PREFIX}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/qrvutil.pc.in ${PROJECT_BINARY_DIR}/qrvutil.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/qrvutil.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})
