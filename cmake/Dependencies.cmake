find_package(Threads REQUIRED)
find_package(Qt6 6.4 REQUIRED COMPONENTS Core Network LinguistTools)
find_package(tomlplusplus REQUIRED)
find_package(SQLite3 REQUIRED)
find_package(OpenSSL 3 REQUIRED)
find_package(CURL REQUIRED)
find_package(LibArchive REQUIRED)
find_package(PkgConfig REQUIRED)
pkg_check_modules(SYSTEMD REQUIRED IMPORTED_TARGET libsystemd)
pkg_check_modules(SECCOMP REQUIRED IMPORTED_TARGET libseccomp)
pkg_check_modules(ZSTD REQUIRED IMPORTED_TARGET libzstd)
pkg_check_modules(DIVSUFSORT REQUIRED IMPORTED_TARGET libdivsufsort)

find_path(OPTIONPARSER_INCLUDE_DIR optionparser.h
    PATH_SUFFIXES fastdds/thirdparty/optionparser/optionparser
    DOC "Folder of optionparser.h, the Lean Mean option parser")
if(NOT OPTIONPARSER_INCLUDE_DIR)
    message(FATAL_ERROR "optionparser.h not found: install libfastrtps-dev or set OPTIONPARSER_INCLUDE_DIR")
endif()

if(RKM_TESTS)
    find_package(GTest REQUIRED)
endif()
