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

# Sample-based solvers, for every row of the settings table that is built, with several rows in a unit:
# quenta_add_row_instances(<target> <name of the units> <header> <rows per unit> <instance with ROW in it>...)

# -O2 with the options of -O3 that make these solvers faster. Full -O3 would increase their code and compile time by
# half. Long loops are in other units.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_FLAGS_RELEASE MATCHES "-O3" AND NOT QUENTA_SANITIZE)
    set(quenta_options_of_rows "$<$<CONFIG:Release>:-O2;-fvect-cost-model=dynamic;-fpeel-loops>")
endif()
function(quenta_add_row_instances target name header rows_per_unit)
    set(rows ${QUENTA_DEVELOPMENT_ROWS})
    if(NOT rows)
        foreach(row RANGE 0 55)
            list(APPEND rows ${row})
        endforeach()
    endif()
    while(rows)
        list(SUBLIST rows 0 ${rows_per_unit} rows_here)
        list(GET rows_here 0 first)
        set(instances "")
        foreach(row IN LISTS rows_here)
            list(TRANSFORM ARGN REPLACE "ROW" "${row}" OUTPUT_VARIABLE of_row)
            list(APPEND instances ${of_row})
            list(POP_FRONT rows)
        endforeach()
        quenta_add_instances(${target} ${name}_${first} ${header} "${quenta_options_of_rows}" ${instances})
    endwhile()
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
    quenta_add_instances(${target} ${name} ${header} "" ${instances})
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
