# What short marches gain by -O3, without what makes half as much code again of them, in half as much time again. Loops
# over many numbers have units of their own.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_FLAGS_RELEASE MATCHES "-O3" AND NOT QUENTA_SANITIZE)
    set(quenta_options_of_rows "$<$<CONFIG:Release>:-O2;-fvect-cost-model=dynamic;-fpeel-loops>")
endif()

# Generates translation units that instantiate a solver body for every row of the settings table, a few rows each, and
# adds them to a target. They are made from a template of a few lines, which receives the first and the last row and
# the text of the instantiations.
#
#   quenta_add_row_instances(<target> <template.cpp.in> <rows per unit> <declaration with ROW in place of the number>...)
function(quenta_add_row_instances target template rows_per_unit)
    set(last_of_table 55)
    get_filename_component(name "${template}" NAME)
    string(REPLACE ".cpp.in" "" name "${name}")
    foreach(first_row RANGE 0 ${last_of_table} ${rows_per_unit})
        math(EXPR last_row "${first_row} + ${rows_per_unit} - 1")
        if(last_row GREATER last_of_table)
            set(last_row ${last_of_table})
        endif()
        set(instantiations "")
        foreach(row RANGE ${first_row} ${last_row})
            foreach(declaration IN LISTS ARGN)
                string(REPLACE "ROW" "${row}" of_row "${declaration}")
                string(APPEND instantiations "template ${of_row}\;\n")
            endforeach()
        endforeach()
        string(REPLACE "\\;" ";" instantiations "${instantiations}")
        set(unit "${CMAKE_CURRENT_BINARY_DIR}/instances/${name}_${first_row}.cpp")
        configure_file("${template}" "${unit}" @ONLY)
        target_sources(${target} PRIVATE "${unit}")
        set_source_files_properties("${unit}" PROPERTIES COMPILE_OPTIONS "${quenta_options_of_rows}")
    endforeach()
endfunction()
