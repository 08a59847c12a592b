# Generates translation units that instantiate the templates of a header, from instances.cpp.in, and adds them to a
# target.

# quenta_add_instances(<target> <name of the unit> <header> <options of the compiler> <instance>...)
#
# An instance is a function with its template arguments. decltype gives its type.
function(quenta_add_instances target unit header options)
    set(instantiations "")
    foreach(instance IN LISTS ARGN)
        string(APPEND instantiations "template decltype(${instance}) ${instance};\n")
    endforeach()
    set(file "${CMAKE_CURRENT_BINARY_DIR}/instances/${unit}.cpp")
    configure_file(${PROJECT_SOURCE_DIR}/cmake/instances.cpp.in "${file}" @ONLY)
    target_sources(${target} PRIVATE "${file}")
    set_source_files_properties("${file}" PROPERTIES COMPILE_OPTIONS "${options}")
endfunction()

# Sample-based solvers, for every row of the settings table that is built, in a unit for each number of nodes, since rows
# with the same number of nodes share their code:
# quenta_add_row_instances(<target> <name of the units> <header> <instance with ROW in it>...)
set(quenta_rows_with_1_node 0 1 3 4 5 10 11 12 13 25 26 27 28 29)
set(quenta_rows_with_2_nodes 2 6 7 8 14 15 16 17 18 19 30 31 32 33 34 35 36 37 38 39)
set(quenta_rows_with_3_nodes 9 20 21 22 23 40 41 42 43 44 45 46 47 48 49)
set(quenta_rows_with_4_nodes 24 50 51 52 53 54)
set(quenta_rows_with_5_nodes 55)

# -O2 with these options of -O3 compiles short marches better than -O3 does. Long loops are in other units.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_FLAGS_RELEASE MATCHES "-O3" AND NOT QUENTA_SANITIZE)
    set(quenta_options_of_marches "$<$<CONFIG:Release>:-O2;-fvect-cost-model=dynamic;-fpeel-loops>")
endif()
function(quenta_add_row_instances target name header)
    foreach(nodes 1_node 2_nodes 3_nodes 4_nodes 5_nodes)
        set(instances "")
        foreach(row IN LISTS quenta_rows_with_${nodes})
            if(NOT QUENTA_DEVELOPMENT_ROWS OR row IN_LIST QUENTA_DEVELOPMENT_ROWS)
                list(TRANSFORM ARGN REPLACE "ROW" "${row}" OUTPUT_VARIABLE of_row)
                list(APPEND instances ${of_row})
            endif()
        endforeach()
        if(instances)
            quenta_add_instances(${target} ${name}_with_${nodes} ${header} "${quenta_options_of_marches}" ${instances})
        endif()
    endforeach()
endfunction()

# A block solver, for every number of points and every dimension, in one unit:
# quenta_add_block_instances(<target> <name of the unit> <header> <name of the function, without _impl>)
function(quenta_add_block_instances target name header function)
    set(instances "")
    foreach(P RANGE 1 5)
        list(APPEND instances "${function}_impl<${P}>")
        foreach(D RANGE 1 8)
            list(APPEND instances "${function}_vec_impl<${P}, ${D}>")
        endforeach()
    endforeach()
    quenta_add_instances(${target} ${name} ${header} "${quenta_options_of_marches}" ${instances})
endfunction()

# A table of vector loops, for every instruction set, each in a unit with the options of its set.
# `utility/instruction_sets.hpp` defines the sets and selects the table at run time.
# quenta_add_instruction_set_instances(<target> <name of the table> <header>)

# The sources test the same macro.
include(CheckCXXSymbolExists)
check_cxx_symbol_exists(__x86_64__ "cstddef" QUENTA_X86_64)

set(quenta_options_of_baseline "")
set(quenta_options_of_avx2 -mavx2)
set(quenta_options_of_avx512 -mavx512f -mavx512dq -mavx512vl -mprefer-vector-width=512)

function(quenta_add_instruction_set_instances target table header)
    set(sets baseline)
    if(QUENTA_X86_64)
        list(APPEND sets avx2 avx512)
    endif()
    foreach(instruction_set IN LISTS sets)
        set(options ${quenta_options_of_${instruction_set}})
        if(WIN32 AND NOT instruction_set STREQUAL "baseline")
            # The stack is aligned to 16 bytes only, but the compiler saves wide registers with aligned moves.
            list(APPEND options "-Wa,-muse-unaligned-vector-move")
        endif()
        quenta_add_instances(${target} ${table}_${instruction_set} ${header} "${options}"
            "${table}::of<${instruction_set}>")
    endforeach()
endfunction()
