# Toolchain file for Linux on aarch64 with Debian's cross compilers. Programs of the build run under QEMU if it is
# installed.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

find_program(QUENTA_QEMU qemu-aarch64)
if(QUENTA_QEMU)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${QUENTA_QEMU} -L /usr/aarch64-linux-gnu)
endif()
