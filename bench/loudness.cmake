# libebur128 is the baseline of the loudness meter benchmarks.
find_package(PkgConfig REQUIRED)
pkg_check_modules(EBUR128 REQUIRED IMPORTED_TARGET libebur128)
target_link_libraries(kvaudio_bench PRIVATE PkgConfig::EBUR128)
