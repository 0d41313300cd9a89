# The third-party libraries, each as one target that only the layer using it links.
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(Boost 1.74 REQUIRED COMPONENTS filesystem)

pkg_check_modules(CURL REQUIRED IMPORTED_TARGET libcurl>=7.74)
pkg_check_modules(CRYPTO REQUIRED IMPORTED_TARGET libcrypto>=1.1.1)
pkg_check_modules(SSL REQUIRED IMPORTED_TARGET libssl>=1.1.1)
pkg_check_modules(ZLIB REQUIRED IMPORTED_TARGET zlib)
pkg_check_modules(JSONCPP REQUIRED IMPORTED_TARGET jsoncpp>=1.9.4)
pkg_check_modules(LUA REQUIRED IMPORTED_TARGET lua5.1)
pkg_check_modules(CLI11 REQUIRED IMPORTED_TARGET CLI11>=1.9)
pkg_check_modules(ARCHIVE REQUIRED IMPORTED_TARGET libarchive>=3.4)
