# The compile options of this project. They apply to its directory only, after the flags of the build. The targets of a
# project that includes this one do not change.

set(CMAKE_C_STANDARD 11)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_UNITY_BUILD OFF) # each instruction set needs separate units

# These options keep the results independent of the flags of the build. A fused multiply-add rounds once where the
# formulas round twice. Fast-math options reorder sums, and at link time they change the floating-point mode of the
# process. -Ofast is replaced by -O3, because its fast-math options cannot be overridden.
set(quenta_arithmetic -fno-fast-math -fno-unsafe-math-optimizations)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    list(APPEND quenta_arithmetic -fno-single-precision-constant)
elseif(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    list(APPEND quenta_arithmetic -Wno-overriding-t-option) # it warns of options that override others
endif()
list(APPEND quenta_arithmetic -ffp-contract=off)
add_link_options(-fno-fast-math -fno-unsafe-math-optimizations)
get_cmake_property(quenta_variables VARIABLES)
foreach(variable IN LISTS quenta_variables)
    if(variable MATCHES "^CMAKE_(C|CXX|EXE_LINKER|SHARED_LINKER)_FLAGS")
        string(REPLACE "-Ofast" "-O3" ${variable} "${${variable}}")
    endif()
endforeach()

if(PROJECT_IS_TOP_LEVEL)
    set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
    add_compile_options(-Wall -Wextra -Wconversion -Wshadow)
    # Indices are signed in loops and unsigned in views. They are never negative where one is converted to the other.
    add_compile_options(-Wno-sign-conversion)
else()
    # The warnings that another project has chosen must not make this build fail.
    add_compile_options(-w)
    set(CMAKE_COMPILE_WARNING_AS_ERROR OFF)
endif()
# No absolute paths in the binaries.
add_compile_options(-ffile-prefix-map=${PROJECT_SOURCE_DIR}/=)

if(WIN32)
    # The linker keeps one copy of an inline function, possibly from a unit with other options. On this platform inline
    # functions are not weak, so the compiler assumes that the copy of the unit is called, and with -fipa-ra it keeps
    # values in registers that the other copy overwrites.
    add_compile_options(-fno-ipa-ra)
    # The library and each test contain the compiler's run-time library, so they need none of its DLLs.
    add_link_options(-static)
    if(PROJECT_IS_TOP_LEVEL)
        # Windows looks for the library in the directory of the program.
        set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
    endif()
endif()

if(QUENTA_SANITIZE)
    # -O1 compiles sanitized code in a tenth of the time of -O3, with the same findings. -g1 suffices for files and
    # lines.
    add_compile_options($<$<CONFIG:Release>:-O1>)
    add_compile_options(-fsanitize=${QUENTA_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer -g1)
    if(QUENTA_SANITIZE MATCHES "undefined" AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        # An undefined operation executes an illegal instruction, whose place AddressSanitizer prints. Descriptions in
        # words would double the size of the code.
        add_compile_options(-fsanitize-undefined-trap-on-error)
    endif()
    add_link_options(-fsanitize=${QUENTA_SANITIZE})
endif()
