# Looks at the machine code of the library's objects: the kernels for wide registers really use them, nothing else
# does, so that the rest runs on every x86-64, and no function of theirs could stand in for one of another object.
#
#   cmake -DOBJECT_LIST=<file, an object a line> -DOBJDUMP=<program> -DNM=<program> [-DONLY_UNALIGNED=ON]
#         -P instruction_sets.cmake
#
# ONLY_UNALIGNED is for platforms that do not align the stack for wide registers.
cmake_minimum_required(VERSION 3.25)

file(STRINGS "${OBJECT_LIST}" objects)
if(NOT EXISTS "${OBJDUMP}" OR NOT EXISTS "${NM}")
    message("SKIPPED: no objdump or no nm found, so the machine code was not looked at")
    return()
endif()

function(run_on_object output object)
    execute_process(COMMAND ${ARGN} "${object}" OUTPUT_VARIABLE text RESULT_VARIABLE result)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "${ARGN} failed on ${object}")
    endif()
    set(${output} "${text}" PARENT_SCOPE)
endfunction()

# What an object may use and must use, by its name: the instructions with the registers of a set, or coded as for one.
set(any_vex "\tv[a-z0-9]+[ \t][^\n]*%[xyz]mm")
set(must_use_avx2 "%ymm")
set(must_not_use_avx2 "%zmm")
set(must_use_avx512 "%zmm")
set(must_not_use_avx512 "")
set(must_use_others "")
set(must_not_use_others "${any_vex}")

set(kinds_seen "")
set(names_of_others "")
set(names_of_wide "")
foreach(object IN LISTS objects)
    if(object MATCHES "_(avx2|avx512)\\.cpp")
        set(kind ${CMAKE_MATCH_1})
        set(owner wide)
    else()
        set(kind others)
        set(owner others)
    endif()
    list(APPEND kinds_seen ${kind})

    run_on_object(code "${object}" "${OBJDUMP}" -d --no-show-raw-insn)
    if(must_use_${kind} AND NOT code MATCHES "${must_use_${kind}}")
        message(SEND_ERROR "${object} has no instruction with ${must_use_${kind}}")
    endif()
    if(must_not_use_${kind} AND code MATCHES "${must_not_use_${kind}}")
        message(SEND_ERROR "${object} has an instruction that not every processor has: ${CMAKE_MATCH_0}")
    endif()

    if(ONLY_UNALIGNED AND code MATCHES "\tvmov(ap[sd]|dqa[0-9]*)[ \t][^\n]*%[yz]mm")
        message(SEND_ERROR "${object} moves a wide register as if the stack were aligned for it: ${CMAKE_MATCH_0}")
    endif()

    # Functions that the linker would merge with another object's of the same name.
    run_on_object(symbols "${object}" "${NM}" --defined-only)
    string(REGEX MATCHALL "[0-9a-f]+ [TWVu] [^\n]+" definitions "${symbols}")
    # No code, but the address of the run time's routine that unwinds, wherever something may throw.
    list(FILTER definitions EXCLUDE REGEX " DW\\.ref\\.")
    foreach(definition IN LISTS definitions)
        string(REGEX REPLACE "^[0-9a-f]+ . " "" name "${definition}")
        if(owner STREQUAL "wide" AND name IN_LIST names_of_wide)
            message(SEND_ERROR "both wide sets define ${name}")
        endif()
        list(APPEND names_of_${owner} "${name}")
    endforeach()
endforeach()

foreach(name IN LISTS names_of_wide)
    if(name IN_LIST names_of_others)
        message(SEND_ERROR "${name} is defined for wide registers and for all processors: the linker keeps one of them")
    endif()
endforeach()
foreach(kind avx2 avx512 others)
    if(NOT kind IN_LIST kinds_seen)
        message(SEND_ERROR "no object of the kind ${kind} was looked at")
    endif()
endforeach()
list(LENGTH objects count)
message("looked at ${count} objects")
