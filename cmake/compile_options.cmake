# How the targets of this project are compiled. Everything here belongs to this directory: the flags of the build come
# first, also those of another project that includes this one, and its own targets do not change.

set(CMAKE_C_STANDARD 11)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_UNITY_BUILD OFF) # each instruction set has units of its own

# The arithmetic that the results depend on, whatever flags the build has. A fused multiply-add rounds once where the
# formulas round twice; fast-math options reorder sums, and at link time they change the mode of the whole process.
# -Ofast is -O3 with fast-math options that cannot be taken back.
set(quenta_arithmetic -fno-fast-math -fno-unsafe-math-optimizations)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    list(APPEND quenta_arithmetic -fno-single-precision-constant)
elseif(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    list(APPEND quenta_arithmetic -Wno-overriding-t-option) # it warns of options that are taken back
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
    # Positions are signed in loops and unsigned in views; the values are never negative where they meet.
    add_compile_options(-Wno-sign-conversion)
else()
    # Of the warnings that another project has chosen none stops it here.
    add_compile_options(-w)
    set(CMAKE_COMPILE_WARNING_AS_ERROR OFF)
endif()
# No path of the building machine in the binaries.
add_compile_options(-ffile-prefix-map=${PROJECT_SOURCE_DIR}/=)

if(WIN32)
    # Of an inline function the linker keeps one copy, which may come from a unit with other options. On this platform
    # such functions are not weak: the compiler trusts that its own copy runs, and leaves values in registers that
    # another uses.
    add_compile_options(-fno-ipa-ra)
    # The run time goes into the library, and into each test, so that none of them needs a DLL of the compiler's.
    add_link_options(-static)
    if(PROJECT_IS_TOP_LEVEL)
        # Programs find the library in their own directory.
        set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
    endif()
endif()

if(QUENTA_SANITIZE)
    # Checks multiply the work of the optimiser, and find the same at a level that compiles in a tenth of the time; of
    # debugging information they show files and lines.
    add_compile_options($<$<CONFIG:Release>:-O1>)
    add_compile_options(-fsanitize=${QUENTA_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer -g1)
    if(QUENTA_SANITIZE MATCHES "undefined" AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        # An undefined operation ends in an illegal instruction, of which AddressSanitizer shows the place. To say in
        # words what it was would take as much code again.
        add_compile_options(-fsanitize-undefined-trap-on-error)
    endif()
    add_link_options(-fsanitize=${QUENTA_SANITIZE})
endif()
