# Generates the translation unit that instantiates a block solver for every number of points and every dimension, and
# adds it to a target. It is made from a template, which receives the text of the instantiations.
#
#   quenta_add_block_instances(<target> <template.cpp.in> <name of the function, without _impl> <its parameters>)
#
# The parameters are written as for the scalar form, with VALUE for those that the vector form takes as a view.
function(quenta_add_block_instances target template function parameters)
    string(REPLACE "VALUE" "double" of_scalar "${parameters}")
    string(REPLACE "VALUE" "view<const double>" of_vector "${parameters}")
    set(instantiations "")
    foreach(P RANGE 1 5)
        string(APPEND instantiations "template bool ${function}_impl<${P}>(${of_scalar})\;\n")
        foreach(D RANGE 1 8)
            string(APPEND instantiations "template bool ${function}_vec_impl<${P}, ${D}>(${of_vector})\;\n")
        endforeach()
    endforeach()
    string(REPLACE "\\;" ";" instantiations "${instantiations}")
    get_filename_component(name "${template}" NAME_WLE)
    set(unit "${CMAKE_CURRENT_BINARY_DIR}/instances/block_${name}")
    configure_file("${template}" "${unit}" @ONLY)
    target_sources(${target} PRIVATE "${unit}")
endfunction()
