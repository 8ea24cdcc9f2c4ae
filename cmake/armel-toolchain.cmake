# The instrument's processor: an ARM926EJ-S (ARMv5TE) under Debian's armel libraries, which scripts/cross puts into the
# sysroot. moc, uic and rcc are the host's own.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabi)
set(CMAKE_CXX_COMPILER arm-linux-gnueabi-g++)
set(CMAKE_CXX_FLAGS_INIT -mcpu=arm926ej-s)

cmake_path(GET CMAKE_CURRENT_LIST_DIR PARENT_PATH project)
set(CMAKE_CROSSCOMPILING_EMULATOR ${project}/scripts/armel-emulator)

set(CMAKE_SYSROOT ${project}/build/armel-sysroot)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
