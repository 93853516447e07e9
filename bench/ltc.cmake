# libltc (Debian libltc-dev) is the decoder baseline of the LTC benchmarks.
find_package(PkgConfig REQUIRED)
pkg_check_modules(LIBLTC REQUIRED IMPORTED_TARGET ltc)
target_link_libraries(kvaudio_bench PRIVATE PkgConfig::LIBLTC)
