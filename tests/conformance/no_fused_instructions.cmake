# cmake -DOBJECT_LIST=<file, an object a line> -DOBJDUMP=<program> -DCOMPILER=<C++ compiler> -DOPTIONS=<for it>
#       -P no_fused_instructions.cmake
#
# The machine code of the library has no instruction that multiplies and adds with one rounding. So that the search is
# known to find one, the compiler makes one with these options, which let it.
cmake_minimum_required(VERSION 3.25)

# x86-64, and aarch64.
set(fused "[[:space:]](vfn?m(add|sub)[a-z0-9]*|fn?m(add|sub)|fml[as])[[:space:]]")

# Sets `output` to the first fused instruction in an object, if there is one.
function(find_fused output object)
    execute_process(COMMAND "${OBJDUMP}" -d --no-show-raw-insn "${object}" COMMAND grep -m 1 -E "${fused}"
        RESULTS_VARIABLE results OUTPUT_VARIABLE found ERROR_VARIABLE errors)
    list(GET results 1 result_of_grep)
    if(result_of_grep GREATER 1 OR NOT "${errors}" STREQUAL "")
        message(FATAL_ERROR "${object} could not be searched: ${errors}")
    endif()
    set(${output} "${found}" PARENT_SCOPE)
endfunction()

file(WRITE fused.cpp "double fused(double a, double b, double c) { return a * b + c; }\n")
execute_process(COMMAND "${COMPILER}" -O2 -ffp-contract=fast ${OPTIONS} -c fused.cpp -o fused.o
    COMMAND_ERROR_IS_FATAL ANY)
find_fused(control fused.o)
if(NOT control)
    message(SEND_ERROR "the search does not find what it searches for")
endif()

file(STRINGS "${OBJECT_LIST}" objects)
foreach(object IN LISTS objects)
    find_fused(found "${object}")
    if(found)
        message(SEND_ERROR "${object} rounds once where the formulas round twice: ${found}")
    endif()
endforeach()
list(LENGTH objects count)
if(count LESS 10)
    message(SEND_ERROR "only ${count} objects were searched")
endif()
message(STATUS "searched ${count} objects")
