# Toolchain file for 64-bit Windows with Debian's MinGW-w64 compilers, in the POSIX variant, which std::thread needs.
# Programs of the build run under Wine if it is installed.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)

# The program itself, because Debian's wrapper script also looks for a 32-bit version.
find_program(QUENTA_WINE wine64 PATHS /usr/lib/wine)
if(QUENTA_WINE)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${QUENTA_WINE})
endif()
