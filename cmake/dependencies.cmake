# What the service itself is linked with.
find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)
pkg_check_modules(DBUS REQUIRED IMPORTED_TARGET dbus-1)
pkg_check_modules(LIBUV REQUIRED IMPORTED_TARGET libuv)
pkg_check_modules(JSONCPP REQUIRED IMPORTED_TARGET jsoncpp)
pkg_check_modules(CURL REQUIRED IMPORTED_TARGET libcurl)
pkg_check_modules(CRYPTO REQUIRED IMPORTED_TARGET libcrypto)
pkg_check_modules(MINIZIP REQUIRED IMPORTED_TARGET minizip)

# mbedtls ships no pkg-config file on Debian 12.
find_path(MBEDTLS_INCLUDE_DIR mbedtls/aes.h REQUIRED)
find_library(MBEDCRYPTO_LIBRARY mbedcrypto REQUIRED)
add_library(mbedcrypto INTERFACE IMPORTED)
target_include_directories(mbedcrypto INTERFACE ${MBEDTLS_INCLUDE_DIR})
target_link_libraries(mbedcrypto INTERFACE ${MBEDCRYPTO_LIBRARY})

# What only parts of the build are linked with.
if(NOT GATEWAY_PLATFORM_LIBRARIES)
  # Without it the log goes to standard error only.
  pkg_check_modules(SYSTEMD IMPORTED_TARGET libsystemd)
endif()
if(NOT GATEWAY_PLATFORM_LIBRARIES OR JOBM_LOCAL_GATEWAY OR JOBM_BENCH OR BUILD_TESTING)
  pkg_check_modules(SQLITE REQUIRED IMPORTED_TARGET sqlite3)
endif()
if(JOBM_LOCAL_GATEWAY OR JOBM_BENCH OR BUILD_TESTING)
  pkg_check_modules(HTTPLIB REQUIRED IMPORTED_TARGET cpp-httplib)
endif()
if(JOBM_LOCAL_GATEWAY)
  pkg_check_modules(MOSQUITTO REQUIRED IMPORTED_TARGET libmosquitto)
endif()
