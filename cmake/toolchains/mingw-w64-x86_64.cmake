# Windows, 64 bits, by Debian's cross compiler with threads of the standard library.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)

# One .exe is all: the runtimes of the compiler and of threads are in it.
set(CMAKE_EXE_LINKER_FLAGS_INIT -static)

set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# What was built is run by Wine, on a Windows of the build tree's own.
find_program(OMBRY_WINE NAMES wine64 wine PATHS /usr/lib/wine)
if(OMBRY_WINE)
    set(CMAKE_CROSSCOMPILING_EMULATOR env "WINEPREFIX=${CMAKE_BINARY_DIR}/wine" WINEDEBUG=-all "${OMBRY_WINE}")
endif()
