# Everything from outside, found once. Names on the right are what the CMake
# files of the libraries link.
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(spdlog REQUIRED)
find_package(nlohmann_json REQUIRED)
find_package(XercesC REQUIRED)
find_package(ICU REQUIRED COMPONENTS uc i18n)
find_package(OpenSSL REQUIRED COMPONENTS Crypto)
pkg_check_modules(inih REQUIRED IMPORTED_TARGET inih)
pkg_check_modules(ace REQUIRED IMPORTED_TARGET ACE)
pkg_check_modules(liburcu_bp REQUIRED IMPORTED_TARGET liburcu-bp)
pkg_check_modules(sqlite3 REQUIRED IMPORTED_TARGET sqlite3)
pkg_check_modules(libpq REQUIRED IMPORTED_TARGET libpq)
pkg_check_modules(hiredis REQUIRED IMPORTED_TARGET hiredis)

# Header-only: sockets, sums over rows, and the fields of messages.
find_path(ASIO_INCLUDE_DIR asio.hpp REQUIRED)
add_library(asio INTERFACE)
target_include_directories(asio SYSTEM INTERFACE ${ASIO_INCLUDE_DIR})
# Left to itself, asio takes its memory in one way or the other, by which header comes first.
target_compile_definitions(asio INTERFACE
  ASIO_STANDALONE ASIO_NO_DEPRECATED ASIO_DISABLE_STD_ALIGNED_ALLOC)
target_link_libraries(asio INTERFACE Threads::Threads)
if(HALVORIA_SANITIZE MATCHES thread)  # does not know fences; asio's locks are enough for it
  target_compile_definitions(asio INTERFACE ASIO_DISABLE_FENCED_BLOCK)
endif()
find_path(XXHASH_INCLUDE_DIR xxhash.h REQUIRED)
find_path(PROTOZERO_INCLUDE_DIR protozero/pbf_reader.hpp REQUIRED)
add_library(protozero INTERFACE)
target_include_directories(protozero SYSTEM INTERFACE ${PROTOZERO_INCLUDE_DIR})
if(PROJECT_IS_TOP_LEVEL)
  find_package(CLI11 REQUIRED)
endif()
if(HALVORIA_TESTS AND NOT HALVORIA_FUZZ)
  find_package(GTest REQUIRED)
endif()
