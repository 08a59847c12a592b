# Generates translation units that instantiate the templates of a header, and adds them to a target. All of them are
# made from instances.cpp.in.

# quenta_add_instances(<target> <name of the unit> <header> <options of the compiler> <instance>...)
#
# An instance is a function with its template arguments. Its type is the template's, and is not written here again.
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

# Sample-based solvers, for every row of the settings table that is built, a few rows per unit:
# quenta_add_row_instances(<target> <name of the units> <header> <rows per unit> <instance with ROW in it>...)

# The parts of -O3 that make short marches faster. All of -O3 would make their code and its compile time half as large
# again; the long loops are in other units.
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

# A table of vector loops, for every instruction set, each in a unit that is compiled with the options of its set.
# `utility/instruction_sets.hpp` has the sets, and the choice among the tables.
# quenta_add_instruction_set_instances(<target> <name of the table> <header>)

# The same question that the sources ask.
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
            # The platform aligns the stack to 16 bytes only, which the compiler forgets when it saves a wide register.
            list(APPEND options "-Wa,-muse-unaligned-vector-move")
        endif()
        quenta_add_instances(${target} ${table}_${instruction_set} ${header} "${options}"
            "${table}::of<${instruction_set}>")
    endforeach()
endfunction()
