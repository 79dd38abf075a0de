# The libraries that Kite stands on; all come from the distribution.

find_package(Threads REQUIRED)
find_package(OpenSSL REQUIRED)
find_package(CURL REQUIRED)
find_package(simdjson REQUIRED)
find_package(fmt REQUIRED)
find_package(PkgConfig REQUIRED)
pkg_check_modules(libdeflate REQUIRED IMPORTED_TARGET libdeflate)

set(KITE_THIRD_PARTY simdjson::simdjson PkgConfig::libdeflate OpenSSL::Crypto OpenSSL::SSL
                     CURL::libcurl Threads::Threads)
