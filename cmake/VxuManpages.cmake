# Manual pages from the header comments: one section 3 page per exported
# function and the vxutil(7) overview, into <build>/man, installed under
# share/man.
find_package(Python3 REQUIRED COMPONENTS Interpreter)
file(GLOB VXU_MAN_HEADERS CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/include/vxutil/*.h)
set(VXU_MAN_DIR ${CMAKE_CURRENT_BINARY_DIR}/man)
add_custom_command(OUTPUT ${VXU_MAN_DIR}/pages.stamp
  COMMAND Python3::Interpreter ${PROJECT_SOURCE_DIR}/cmake/vxu_manpages.py ${VXU_MAN_DIR}
          ${PROJECT_VERSION} ${PROJECT_SOURCE_DIR}/docs/vxutil.7.in ${PROJECT_SOURCE_DIR}/include/vxutil
  COMMAND ${CMAKE_COMMAND} -E touch ${VXU_MAN_DIR}/pages.stamp
  DEPENDS ${PROJECT_SOURCE_DIR}/cmake/vxu_manpages.py ${PROJECT_SOURCE_DIR}/docs/vxutil.7.in
          ${VXU_MAN_HEADERS}
  COMMENT "Writing the manual pages into ${VXU_MAN_DIR}"
  VERBATIM)
add_custom_target(manpages ALL DEPENDS ${VXU_MAN_DIR}/pages.stamp)
install(DIRECTORY ${VXU_MAN_DIR}/man3 ${VXU_MAN_DIR}/man7 DESTINATION ${CMAKE_INSTALL_MANDIR})
