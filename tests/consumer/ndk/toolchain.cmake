# Stands in for the NDK's toolchain file, which tells CMake the same about the system, so that what the
# build chooses there can be looked at anywhere.
set(CMAKE_SYSTEM_NAME Android)
set(CMAKE_SYSTEM_VERSION 1)
set(CMAKE_CXX_COMPILER c++)
