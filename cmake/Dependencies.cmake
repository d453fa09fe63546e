# Everything from outside, found once. Names on the right are what the CMake
# files of the libraries link.
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(spdlog REQUIRED)
find_package(CLI11 REQUIRED)
find_package(nlohmann_json REQUIRED)
find_package(XercesC REQUIRED)
find_package(ICU REQUIRED COMPONENTS uc i18n)
pkg_check_modules(inih REQUIRED IMPORTED_TARGET inih)
pkg_check_modules(ace REQUIRED IMPORTED_TARGET ACE)
if(NOT HALVORIA_FUZZ)
  find_package(GTest REQUIRED)
endif()
