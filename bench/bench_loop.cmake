# The loop benchmark compares against libevent (select back end) and libuv.
find_package(PkgConfig REQUIRED)
pkg_check_modules(LIBEVENT REQUIRED IMPORTED_TARGET libevent)
pkg_check_modules(LIBUV REQUIRED IMPORTED_TARGET libuv)
target_link_libraries(${exe} PRIVATE PkgConfig::LIBEVENT PkgConfig::LIBUV)
