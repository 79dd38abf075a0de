# The libraries that Kite stands on; all come from the distribution.

find_package(Threads REQUIRED)
find_package(OpenSSL REQUIRED)
find_package(CURL REQUIRED)
find_package(simdjson REQUIRED)
find_package(fmt REQUIRED)
find_package(PkgConfig REQUIRED)
pkg_check_modules(libdeflate REQUIRED IMPORTED_TARGET libdeflate)
if(KITE_QT6)
  find_package(Qt6 6.4 REQUIRED COMPONENTS Gui OPTIONAL_COMPONENTS Widgets)  # widgets are for the example and the tests
endif()
if(KITE_GTK4)
  pkg_check_modules(gtk4 REQUIRED IMPORTED_TARGET gtk4>=4.8)
endif()

set(KITE_THIRD_PARTY simdjson::simdjson PkgConfig::libdeflate OpenSSL::Crypto OpenSSL::SSL
                     CURL::libcurl Threads::Threads)
