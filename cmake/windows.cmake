# A toolchain file: builds for 64-bit Windows with Debian's MinGW-w64 compilers (threads as in POSIX, which the standard
# library needs for its own), and runs programs of the build under Wine, where that is installed.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)

# The program itself, past a script that looks for a 32-bit one too.
find_program(QUENTA_WINE wine64 PATHS /usr/lib/wine)
if(QUENTA_WINE)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${QUENTA_WINE})
endif()
