# libebur128 as an independent reference meter for the loudness cross-check.
find_package(PkgConfig REQUIRED)
pkg_check_modules(EBUR128 REQUIRED IMPORTED_TARGET libebur128)
target_link_libraries(${area}_tests PRIVATE PkgConfig::EBUR128)
