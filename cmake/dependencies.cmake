# Everything the build takes from the host. The Debian package names stand in ./dev.
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
# Its headers only: the library itself is loaded when the first digest is computed.
pkg_check_modules(CRYPTO REQUIRED libcrypto>=3.0)
pkg_check_modules(PLIST REQUIRED IMPORTED_TARGET libplist-2.0)
pkg_check_modules(URIPARSER REQUIRED IMPORTED_TARGET liburiparser)
pkg_check_modules(UUID REQUIRED IMPORTED_TARGET uuid)
pkg_check_modules(EXPAT REQUIRED IMPORTED_TARGET expat)
pkg_check_modules(SYSTEMD REQUIRED IMPORTED_TARGET libsystemd)
pkg_check_modules(MOUNT REQUIRED IMPORTED_TARGET mount)
