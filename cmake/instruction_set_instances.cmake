# Generates the translation units that instantiate a table of vector loops for each instruction set, compiles each with
# the options of its set, and adds them to a target. They are made from a template of a few lines, which receives the
# set's tag. `utility/instruction_sets.hpp` has the tags, and the choice among the tables.
#
#   quenta_add_instruction_set_instances(<target> <template.cpp.in>)

# The same question that the sources ask.
include(CheckCXXSymbolExists)
check_cxx_symbol_exists(__x86_64__ "cstddef" QUENTA_X86_64)

set(quenta_options_of_baseline "")
set(quenta_options_of_avx2 -mavx2)
set(quenta_options_of_avx512 -mavx512f -mavx512dq -mavx512vl -mprefer-vector-width=512)

function(quenta_add_instruction_set_instances target template)
    set(sets baseline)
    if(QUENTA_X86_64)
        list(APPEND sets avx2 avx512)
    endif()
    get_filename_component(name "${template}" NAME)
    string(REPLACE ".cpp.in" "" name "${name}")
    foreach(instruction_set IN LISTS sets)
        set(unit "${CMAKE_CURRENT_BINARY_DIR}/instances/${name}_${instruction_set}.cpp")
        configure_file("${template}" "${unit}" @ONLY)
        target_sources(${target} PRIVATE "${unit}")
        set_source_files_properties("${unit}" PROPERTIES COMPILE_OPTIONS "${quenta_options_of_${instruction_set}}")
        if(WIN32 AND NOT instruction_set STREQUAL "baseline")
            # The platform aligns the stack to 16 bytes only, which the compiler forgets when it saves a wide register.
            set_property(SOURCE "${unit}" APPEND PROPERTY COMPILE_OPTIONS "-Wa,-muse-unaligned-vector-move")
        endif()
    endforeach()
endfunction()
