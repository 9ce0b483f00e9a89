# libuv for the libuv timer comparison.
find_package(PkgConfig REQUIRED)
pkg_check_modules(LIBUV REQUIRED IMPORTED_TARGET libuv)
target_link_libraries(${exe} PRIVATE PkgConfig::LIBUV)
