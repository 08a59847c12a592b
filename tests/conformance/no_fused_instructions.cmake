# cmake -DOBJECT_LIST=<file, one object per line> -DOBJDUMP=<program> -DCOMPILER=<C++ compiler> -DOPTIONS=<for it>
#       -P no_fused_instructions.cmake
#
# The machine code of the library has no fused multiply-add instruction. To check that the search works, the compiler
# first generates one, with the given options.
cmake_minimum_required(VERSION 3.25)

# x86-64, and aarch64.
set(fused "[[:space:]](vfn?m(add|sub)[a-z0-9]*|fn?m(add|sub)|fml[as])[[:space:]]")

# Sets `output` to the first fused instruction in an object, if there is one.
function(find_fused output object)
    execute_process(COMMAND "${OBJDUMP}" -d --no-show-raw-insn "${object}" COMMAND grep -m 1 -E "${fused}"
        RESULTS_VARIABLE results OUTPUT_VARIABLE found ERROR_VARIABLE errors)
    list(GET results 1 result_of_grep)
    if(result_of_grep GREATER 1 OR NOT "${errors}" STREQUAL "")
        message(FATAL_ERROR "cannot search ${object}: ${errors}")
    endif()
    set(${output} "${found}" PARENT_SCOPE)
endfunction()

file(WRITE fused.cpp "double fused(double a, double b, double c) { return a * b + c; }\n")
execute_process(COMMAND "${COMPILER}" -O2 -ffp-contract=fast ${OPTIONS} -c fused.cpp -o fused.o
    COMMAND_ERROR_IS_FATAL ANY)
find_fused(control fused.o)
if(NOT control)
    message(SEND_ERROR "expected a fused instruction in fused.o, got none")
endif()

file(STRINGS "${OBJECT_LIST}" objects)
foreach(object IN LISTS objects)
    find_fused(found "${object}")
    if(found)
        message(SEND_ERROR "${object}: expected no fused instruction, got ${found}")
    endif()
endforeach()
list(LENGTH objects count)
if(count LESS 10)
    message(SEND_ERROR "expected at least 10 objects, got ${count}")
endif()
message(STATUS "searched ${count} objects")
