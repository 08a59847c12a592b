# cmake -DLIBRARY=<DLL> -DIMPORT_LIBRARY=<its import library> -DHEADER=<public header> -DOBJDUMP=<program> -DNM=<program>
#       -P exports_of_dll.cmake
#
# The DLL exports the functions of the header under their plain names, the variants of three kinds of block solvers, and
# nothing else. Its import library lists the same. It needs only DLLs of the system, and calls no mathematical function
# of theirs.
cmake_minimum_required(VERSION 3.25)
include(${CMAKE_CURRENT_LIST_DIR}/declared_exports.cmake)

# `objdump -p` lists the imports first, then under this title the exports.
run(tables "${OBJDUMP}" -p "${LIBRARY}")
string(FIND "${tables}" "[Ordinal/Name Pointer] Table" exports_begin)
string(SUBSTRING "${tables}" 0 ${exports_begin} imports)
string(SUBSTRING "${tables}" ${exports_begin} -1 exports)

string(REGEX MATCHALL "\n\t\\[ *[0-9]+\\] [^\n]+" exported "${exports}")
list(TRANSFORM exported REPLACE ".*\\] " "")
list(SORT exported)

function(functions_of_import_library output)
    run(symbols "${NM}" ${ARGN} "${IMPORT_LIBRARY}")
    string(REGEX MATCHALL " T [^\n]+" names "${symbols}")
    list(TRANSFORM names REPLACE "^ T " "")
    list(SORT names)
    set(${output} "${names}" PARENT_SCOPE)
endfunction()

functions_of_import_library(imported)
expect_equal("exports of the DLL, and functions of the import library" "${imported}" "${exported}")
functions_of_import_library(imported --demangle)
set(expected ${declared} ${variants})
list(SORT expected)
expect_equal("exports" "${expected}" "${imported}")

# The DLLs and functions that it needs.
string(REGEX MATCHALL "DLL Name: [^\n]+" needed "${imports}")
list(TRANSFORM needed REPLACE "DLL Name: " "")
list(SORT needed)
expect_equal("DLLs that the DLL needs" "KERNEL32.dll;msvcrt.dll" "${needed}")
foreach(function IN ITEMS DisableThreadLibraryCalls FlsAlloc FlsSetValue RaiseException)
    if(NOT imports MATCHES "[\t ]${function}\n")
        message(SEND_ERROR "expected the DLL to call ${function} of the system")
    endif()
endforeach()
foreach(function IN ITEMS cos sin tan acos asin atan atan2 cosh sinh tanh exp log log10 pow sqrt fmod)
    if(imports MATCHES "[\t ]${function}\n")
        message(SEND_ERROR "expected the DLL not to call ${function} of the system")
    endif()
endforeach()
