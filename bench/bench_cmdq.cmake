# libuv for the uv_async_send comparison.
find_package(PkgConfig REQUIRED)
pkg_check_modules(LIBUV REQUIRED IMPORTED_TARGET libuv)
target_link_libraries(${exe} PRIVATE PkgConfig::LIBUV)
