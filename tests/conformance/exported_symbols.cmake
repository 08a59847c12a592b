# cmake -DLIBRARY=<shared library> -DHEADER=<public header> -P exported_symbols.cmake
#
# The shared library (ELF) exports the functions of the header, the variants of three kinds of block solvers, and nothing
# else; it names its version; it needs nothing but the compiler's and the C library, and of the mathematical functions
# only those whose results are agreed on.

cmake_minimum_required(VERSION 3.25)

function(run output)
    execute_process(COMMAND ${ARGN} OUTPUT_VARIABLE text COMMAND_ERROR_IS_FATAL ANY)
    set(${output} "${text}" PARENT_SCOPE)
endfunction()

function(expect_equal what expected actual)
    if(NOT "${expected}" STREQUAL "${actual}")
        message(SEND_ERROR "${what}:\n  expected ${expected}\n  actual   ${actual}")
    endif()
endfunction()

# The functions of the header.
file(READ "${HEADER}" header)
string(REGEX MATCHALL "\nQUENTA_API [a-z]+ [a-z0-9_]+\\(" declarations "${header}")
list(TRANSFORM declarations REPLACE ".* ([a-z0-9_]+)\\(" "\\1" OUTPUT_VARIABLE declared)
string(REGEX MATCHALL "\nQUENTA_API" all_declarations "${header}")
list(LENGTH declared declared_count)
list(LENGTH all_declarations all_count)
expect_equal("functions found in the header" ${all_count} ${declared_count})
if(declared_count LESS 9)
    message(SEND_ERROR "only ${declared_count} functions were found in ${HEADER}")
endif()

# The variants of the block solvers: a view is {length, pointer}.
set(in "quenta::view<double const>")
set(out "quenta::view<double>")
set(variants "")
foreach(P RANGE 1 5)
    list(APPEND variants
        "bool quenta::function_solve_vie1_impl<${P}>(${in}, ${in}, int, ${out})"
        "bool quenta::function_solve_vie1_cont_impl<${P}>(${in}, ${in}, int, ${in}, double, double, ${out}, ${out})"
        "bool quenta::function_solve_vide_impl<${P}>(${in}, ${in}, ${in}, ${in}, ${in}, ${in}, double, int, ${out}, ${out})")
    foreach(D RANGE 1 8)
        set(vec "vec_impl<${P}, ${D}>")
        list(APPEND variants
            "bool quenta::function_solve_vie1_${vec}(${in}, ${in}, int, ${out})"
            "bool quenta::function_solve_vie1_cont_${vec}(${in}, ${in}, int, ${in}, double, ${in}, ${out}, ${out})"
            "bool quenta::function_solve_vide_${vec}(${in}, ${in}, ${in}, ${in}, ${in}, ${in}, ${in}, int, ${out}, ${out})")
    endforeach()
endforeach()

# The symbols of the library.
run(symbols nm -D --defined-only --demangle "${LIBRARY}")
string(REGEX MATCHALL "[^\n]+" exported "${symbols}")
list(TRANSFORM exported REPLACE "^[0-9a-f]+ [A-Za-z] " "")
set(expected ${declared} ${variants})
list(SORT expected)
list(SORT exported)
expect_equal("exported symbols" "${expected}" "${exported}")

run(dynamic readelf -d -W "${LIBRARY}")
get_filename_component(file "${LIBRARY}" REALPATH)
get_filename_component(file "${file}" NAME)
string(REGEX MATCH "SONAME[^[]*\\[libquenta_native\\.so\\.([0-9]+)\\]" soname "${dynamic}")
if(NOT soname OR NOT file MATCHES "^libquenta_native\\.so\\.${CMAKE_MATCH_1}\\.[0-9]+\\.[0-9]+$")
    message(SEND_ERROR "no soname with the first number of the version that the file is named after: ${file}")
endif()

string(REGEX MATCHALL "NEEDED[^\n]*\\[[^]]*\\]" needed "${dynamic}")
list(TRANSFORM needed REPLACE ".*\\[(.*)\\]" "\\1")
foreach(library IN LISTS needed)
    # ld-linux is the C library's own loader, which serves thread-local variables.
    if(NOT library MATCHES "^(libstdc\\+\\+|libm|libgcc_s|libc|ld-linux-[a-z0-9-]+)\\.so\\.[0-9]+$")
        message(SEND_ERROR "the library needs ${library}")
    endif()
endforeach()

# The mathematical functions that it calls.
run(links ldd "${LIBRARY}")
string(REGEX MATCH "libm\\.so\\.6 => ([^ ]+)" found "${links}")
set(mathematical "")
if(found)
    run(symbols nm -D --defined-only --format=posix "${CMAKE_MATCH_1}")
    string(REGEX MATCHALL "[^\n@]+@[^\n]*" lines "${symbols}")
    list(TRANSFORM lines REPLACE "@.*" "" OUTPUT_VARIABLE mathematical)
endif()
run(symbols nm -D --undefined-only --format=posix "${LIBRARY}")
string(REGEX MATCHALL "[^\n]+" lines "${symbols}")
list(TRANSFORM lines REPLACE "[@ ].*" "" OUTPUT_VARIABLE undefined)
set(called 0)
foreach(symbol IN LISTS undefined)
    if(symbol IN_LIST mathematical)
        math(EXPR called "${called} + 1")
        if(NOT symbol MATCHES "^(cos|sin|pow)$")
            message(SEND_ERROR "the library calls ${symbol}")
        endif()
    endif()
endforeach()
if(called EQUAL 0)
    message(SEND_ERROR "no call of cos or sin was found: the check has lost its object")
endif()
