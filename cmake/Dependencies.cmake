# Every library of the distribution that the house uses, found once.
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(Boost 1.74 REQUIRED COMPONENTS system filesystem date_time)
find_package(pugixml REQUIRED)
find_package(fmt REQUIRED)
find_package(CURL REQUIRED)
find_package(OpenSSL REQUIRED)
find_package(SQLite3 REQUIRED)
find_package(ZLIB REQUIRED)
find_package(nlohmann_json REQUIRED)
find_package(CLI11 REQUIRED)

find_package(tl-expected REQUIRED)
pkg_check_modules(HTTPLIB REQUIRED IMPORTED_TARGET cpp-httplib)
find_library(LOG4CPLUS_LIBRARY log4cplus REQUIRED)
pkg_check_modules(LIBZIP REQUIRED IMPORTED_TARGET libzip)

add_library(log4cplus INTERFACE)
target_link_libraries(log4cplus INTERFACE ${LOG4CPLUS_LIBRARY})

# Set once for everybody: Asio of Boost 1.74 does not compile with the coroutines of GCC 12 in
# C++20, and version 3 of the file system library appends an absolute right side of a path join.
add_compile_definitions(BOOST_ASIO_DISABLE_CO_AWAIT BOOST_FILESYSTEM_VERSION=3
                        BOOST_BIND_GLOBAL_PLACEHOLDERS)
