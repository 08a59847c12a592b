# cmake -DCOMMANDS=<compile_commands.json> -DSOURCE=<source directory> -DBINARY=<its build directory>
#       -P no_contraction.cmake
#
# On every compile line of the project, -ffp-contract=off comes after all other options that could enable contraction.
cmake_minimum_required(VERSION 3.25)

file(READ "${COMMANDS}" commands)
string(JSON count LENGTH "${commands}")
math(EXPR last "${count} - 1")
set(checked 0)
foreach(i RANGE ${last})
    string(JSON file GET "${commands}" ${i} file)
    cmake_path(IS_PREFIX SOURCE "${file}" NORMALIZE in_source)
    cmake_path(IS_PREFIX BINARY "${file}" NORMALIZE in_binary)
    if(in_source OR in_binary)
        math(EXPR checked "${checked} + 1")
        string(JSON command GET "${commands}" ${i} command)
        separate_arguments(arguments UNIX_COMMAND "${command}")
        list(FILTER arguments INCLUDE REGEX "^-[fmO]")
        list(POP_BACK arguments final)
        if(NOT final STREQUAL "-ffp-contract=off")
            message(SEND_ERROR "${file}: expected -ffp-contract=off as the last -f, -m or -O option, got ${final}")
        endif()
    endif()
endforeach()
message(STATUS "${checked} compile lines")
if(checked LESS 10)
    message(SEND_ERROR "expected at least 10 compile lines of the project, got ${checked}")
endif()
