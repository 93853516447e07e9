# libltc (Debian libltc-dev) is the independent LTC implementation the oracle tests compare with.
find_package(PkgConfig REQUIRED)
pkg_check_modules(LIBLTC REQUIRED IMPORTED_TARGET ltc)
target_link_libraries(${area}_tests PRIVATE PkgConfig::LIBLTC)
