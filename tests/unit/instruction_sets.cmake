# Checks the machine code of the library's objects. The kernels for wide registers use them, and no other object does, so
# that the rest of the library runs on every x86-64. The linker cannot replace a function of another object by one of
# these kernels.
#
#   cmake -DOBJECT_LIST=<file, one object per line> -DOBJDUMP=<program> -DNM=<program> [-DONLY_UNALIGNED=ON]
#         -P instruction_sets.cmake
#
# ONLY_UNALIGNED is for platforms that do not align the stack for wide registers.
cmake_minimum_required(VERSION 3.25)

file(STRINGS "${OBJECT_LIST}" objects)
if(NOT EXISTS "${OBJDUMP}" OR NOT EXISTS "${NM}")
    message("SKIPPED: the machine code is not checked, because objdump or nm was not found")
    return()
endif()

function(run_on_object output object)
    execute_process(COMMAND ${ARGN} "${object}" OUTPUT_VARIABLE text RESULT_VARIABLE result)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "${ARGN} failed on ${object}")
    endif()
    set(${output} "${text}" PARENT_SCOPE)
endfunction()

# What an object must use and must not use, by the name of the object: the registers of an instruction set, or any
# instruction with a VEX or EVEX encoding.
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
        message(SEND_ERROR "${object}: expected an instruction with ${must_use_${kind}}, got none")
    endif()
    if(must_not_use_${kind} AND code MATCHES "${must_not_use_${kind}}")
        message(SEND_ERROR "${object} has an instruction of a wider instruction set: ${CMAKE_MATCH_0}")
    endif()

    if(ONLY_UNALIGNED AND code MATCHES "\tvmov(ap[sd]|dqa[0-9]*)[ \t][^\n]*%[yz]mm")
        message(SEND_ERROR "${object}: expected unaligned moves of wide registers, got ${CMAKE_MATCH_0}")
    endif()

    # Functions that the linker would merge with those of the same name in other objects.
    run_on_object(symbols "${object}" "${NM}" --defined-only)
    string(REGEX MATCHALL "[0-9a-f]+ [TWVu] [^\n]+" definitions "${symbols}")
    # This is not code: it is the address of the unwinder, in every object that may throw.
    list(FILTER definitions EXCLUDE REGEX " DW\\.ref\\.")
    foreach(definition IN LISTS definitions)
        string(REGEX REPLACE "^[0-9a-f]+ . " "" name "${definition}")
        if(owner STREQUAL "wide" AND name IN_LIST names_of_wide)
            message(SEND_ERROR "both wide instruction sets define ${name}: the linker keeps only one")
        endif()
        list(APPEND names_of_${owner} "${name}")
    endforeach()
endforeach()

foreach(name IN LISTS names_of_wide)
    if(name IN_LIST names_of_others)
        message(SEND_ERROR "${name} is defined for wide registers and for all processors: the linker keeps only one")
    endif()
endforeach()
foreach(kind avx2 avx512 others)
    if(NOT kind IN_LIST kinds_seen)
        message(SEND_ERROR "expected an object of the kind ${kind}, got none")
    endif()
endforeach()
list(LENGTH objects count)
message("checked ${count} objects")
