find_package(Threads REQUIRED)
find_package(OpenSSL REQUIRED)
find_package(CURL REQUIRED)

# Debian's RapidJSON config sets only an include variable, so we make our own
# target. The 8-byte alignment keeps its pool allocator correct on 32-bit ARM,
# where doubles and 64-bit integers need 8-byte alignment; it must be a compile
# option because CMake drops function-like macros given as definitions. It is
# set for every target, not only those linking vemo_rapidjson: the headers are
# on the default include path, and a translation unit that includes them
# without the option (a test linking a library that uses RapidJSON privately)
# would both misalign values and break the one-definition rule.
find_path(RAPIDJSON_INCLUDE_DIR rapidjson/document.h REQUIRED)
add_library(vemo_rapidjson INTERFACE)
target_include_directories(vemo_rapidjson SYSTEM INTERFACE ${RAPIDJSON_INCLUDE_DIR})
target_compile_definitions(vemo_rapidjson INTERFACE RAPIDJSON_HAS_STDSTRING=1)
add_compile_options("-DRAPIDJSON_ALIGN(x)=(((x)+static_cast<size_t>(7u))&~static_cast<size_t>(7u))")

# The cloud serves HTTPS with cpp-httplib and keeps its state in SQLite; the
# tests' HTTPS servers use cpp-httplib too.
find_package(PkgConfig REQUIRED)
pkg_check_modules(HTTPLIB REQUIRED IMPORTED_TARGET cpp-httplib)
find_package(SQLite3 REQUIRED)

if(VEMO_BUILD_TESTS)
    find_package(GTest REQUIRED)
    include(GoogleTest)
endif()
if(VEMO_BUILD_BENCHMARKS)
    find_package(benchmark REQUIRED)
endif()
