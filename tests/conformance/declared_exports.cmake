# Shared by the checks of exports. Include it with HEADER set. It sets `declared`, the functions of the public header,
# and `variants`, the exported C++ functions, demangled.

function(run output)
    execute_process(COMMAND ${ARGN} OUTPUT_VARIABLE text COMMAND_ERROR_IS_FATAL ANY)
    set(${output} "${text}" PARENT_SCOPE)
endfunction()

function(expect_equal what expected actual)
    if(NOT "${expected}" STREQUAL "${actual}")
        message(SEND_ERROR "${what}:\n  expected ${expected}\n  got      ${actual}")
    endif()
endfunction()

file(READ "${HEADER}" header)
string(REGEX MATCHALL "\nQUENTA_[A-Z_]*API [a-z *]+[ *][a-z0-9_]+\\(" declarations "${header}")
list(TRANSFORM declarations REPLACE ".*[ *]([a-z0-9_]+)\\(" "\\1" OUTPUT_VARIABLE declared)
string(REGEX MATCHALL "\nQUENTA_[A-Z_]*API " all_declarations "${header}")
list(LENGTH declared declared_count)
list(LENGTH all_declarations all_count)
expect_equal("functions found in the header" ${all_count} ${declared_count})
if(declared_count LESS 9)
    message(SEND_ERROR "expected at least 9 functions in ${HEADER}, got ${declared_count}")
endif()

set(variants "")
if(NOT HEADER MATCHES "/quenta_native\\.h$")
    return()
endif()

# The variants of the block solvers. A view is {length, pointer}.
set(in "quenta::view<double const>")
set(out "quenta::view<double>")
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
