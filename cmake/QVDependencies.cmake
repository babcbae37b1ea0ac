# The libraries that the kit stands on. Installed with static libraries, too, whose users link them.

# Before this version libcurl let TLS raise SIGPIPE, and waited for a resolver that hangs.
find_package(CURL 7.88 REQUIRED)
find_package(EXPAT REQUIRED)
find_package(ICU REQUIRED COMPONENTS uc i18n)
find_package(OpenSSL REQUIRED)
find_package(ZLIB REQUIRED)
find_package(Threads REQUIRED)
find_package(simdjson 3.0 REQUIRED)
find_package(PkgConfig REQUIRED)
pkg_check_modules(libmnl REQUIRED IMPORTED_TARGET libmnl)
pkg_check_modules(uuid REQUIRED IMPORTED_TARGET uuid)
