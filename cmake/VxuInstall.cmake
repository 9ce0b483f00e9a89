include(CMakePackageConfigHelpers)

install(TARGETS vxutil
  EXPORT vxutilTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  PUBLIC_HEADER DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vxutil)
# Outside the export set: the CMake package works with any libvxlog.so.
if(VXU_INSTALL_VXLOG)
  install(TARGETS vxlog LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
endif()
install(DIRECTORY include/vxutil DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  FILES_MATCHING PATTERN "*.h")

install(EXPORT vxutilTargets
  NAMESPACE vxutil::
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vxutil)
configure_package_config_file(cmake/vxutilConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/vxutilConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vxutil)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/vxutilConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/vxutilConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/vxutilConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vxutil)

# The .pc file finds its prefix relative to itself, so the tree can move.
file(RELATIVE_PATH VXU_PC_TO_PREFIX
  ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" VXU_PC_TO_PREFIX "${VXU_PC_TO_PREFIX}")
configure_file(cmake/vxutil.pc.in ${CMAKE_CURRENT_BINARY_DIR}/vxutil.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/vxutil.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
