# How everything here is compiled.

set(CMAKE_C_STANDARD 11)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_FLAGS_RELEASE "-O3")
set(CMAKE_C_FLAGS_RELEASE "-O3")

# A fused multiply-add rounds once where the formulas round twice. The flag stands last on every compile line, so that
# nothing can turn contraction on again.
foreach(language C CXX)
    string(REPLACE "<FLAGS>" "<FLAGS> -ffp-contract=off" CMAKE_${language}_COMPILE_OBJECT
                   "${CMAKE_${language}_COMPILE_OBJECT}")
endforeach()

add_compile_options(-Wall -Wextra -Wconversion -Wshadow)
# Positions are signed in loops and unsigned in views; the values are never negative where they meet.
add_compile_options(-Wno-sign-conversion)
# No path of the building machine in the binaries.
add_compile_options(-ffile-prefix-map=${PROJECT_SOURCE_DIR}/=)

if(WIN32)
    # Of an inline function the linker keeps one copy, which may come from a unit with other options. On this platform
    # such functions are not weak: the compiler trusts that its own copy runs, and leaves values in registers that
    # another uses.
    add_compile_options(-fno-ipa-ra)
    # The run time goes into the library, and into each test, so that none of them needs a DLL of the compiler's.
    add_link_options(-static)
    # Programs find the library in their own directory.
    set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
endif()

if(QUENTA_SANITIZE)
    # Checks multiply the work of the optimiser, and find the same at a level that compiles in a tenth of the time; of
    # debugging information they show files and lines.
    set(CMAKE_CXX_FLAGS_RELEASE "-O1")
    set(CMAKE_C_FLAGS_RELEASE "-O1")
    add_compile_options(-fsanitize=${QUENTA_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer -g1)
    if(QUENTA_SANITIZE MATCHES "undefined" AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        # An undefined operation ends in an illegal instruction, of which AddressSanitizer shows the place. To say in
        # words what it was would take as much code again.
        add_compile_options(-fsanitize-undefined-trap-on-error)
    endif()
    add_link_options(-fsanitize=${QUENTA_SANITIZE})
endif()
