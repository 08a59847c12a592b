# cmake -DLIBRARY=<shared library> -DNAME=<its name> -DHEADER=<public header> -DDOCUMENT=<layout> -DNM=<program>
#       -DREADELF=<program> -DOBJDUMP=<program> -DCOMPILER=<program> -P exported_symbols.cmake
#
# The shared library (ELF) exports the functions of the header, for quenta_native the variants of three kinds of block
# solvers, and nothing else. Its soname has the version. It needs only the run-time libraries of the compiler and the C
# library. The table in the section "The border of <name>" of the document lists the same, and the mathematical
# functions that are called.

cmake_minimum_required(VERSION 3.25)

include(${CMAKE_CURRENT_LIST_DIR}/declared_exports.cmake)

# The table of the document.
file(READ "${DOCUMENT}" document)
string(FIND "${document}" "\n## The border of ${NAME}\n" begin)
string(SUBSTRING "${document}" ${begin} -1 section)
string(FIND "${section}" "\n| | |\n" begin)
string(SUBSTRING "${section}" ${begin} -1 section)
string(FIND "${section}" "\n\n" end)
string(SUBSTRING "${section}" 0 ${end} table)
string(APPEND table "\n")
function(names_in output text)
    string(REGEX MATCHALL "`[^`]+`" names "${text}")
    list(TRANSFORM names REPLACE "`" "")
    list(SORT names)
    set(${output} "${names}" PARENT_SCOPE)
endfunction()
# Removes the row from the table.
macro(take_row output label)
    if(NOT table MATCHES "\n\\| ${label} \\|([^|\n]*)\\|\n")
        message(FATAL_ERROR "expected a row '${label}' in the section 'The border of ${NAME}' of ${DOCUMENT}, got none")
    endif()
    names_in(${output} "${CMAKE_MATCH_1}")
    string(REGEX REPLACE "\n\\| ${label} \\|[^\n]*" "" table "${table}")
endmacro()
take_row(documented_libraries "libraries, apart from the loader")
take_row(documented_functions "mathematical functions")
take_row(documented_variables "variables")
set(documented_variants "")
if(variants)
    take_row(documented_variants "their variants in C[+][+]")
endif()
names_in(documented "${table}")
list(SORT declared)
expect_equal("functions of the header in the document" "${declared}" "${documented}")

# The symbols of the library.
run(symbols "${NM}" -D --defined-only --demangle "${LIBRARY}")
string(REGEX MATCHALL "[^\n]+" exported "${symbols}")
list(TRANSFORM exported REPLACE "^[0-9a-f]+ [A-Za-z] " "")
set(expected ${declared} ${variants})
list(SORT expected)
list(SORT exported)
expect_equal("exported symbols" "${expected}" "${exported}")

list(TRANSFORM variants REPLACE "^bool quenta::([a-z0-9_]+)<.*" "\\1" OUTPUT_VARIABLE variant_names)
list(REMOVE_DUPLICATES variant_names)
list(SORT variant_names)
expect_equal("variants in the document" "${variant_names}" "${documented_variants}")

run(dynamic "${READELF}" -d -W "${LIBRARY}")
get_filename_component(file "${LIBRARY}" REALPATH)
get_filename_component(file "${file}" NAME)
string(REGEX MATCH "SONAME[^[]*\\[lib${NAME}\\.so\\.([0-9]+)\\]" soname "${dynamic}")
if(NOT soname OR NOT file MATCHES "^lib${NAME}\\.so\\.${CMAKE_MATCH_1}\\.[0-9]+\\.[0-9]+$")
    message(SEND_ERROR "expected a soname with the major version in the file name, got '${soname}' for ${file}")
endif()

string(REGEX MATCHALL "NEEDED[^\n]*\\[[^]]*\\]" needed "${dynamic}")
list(TRANSFORM needed REPLACE ".*\\[([^.]*)\\.so\\.[0-9]+\\]" "\\1")
list(FILTER needed EXCLUDE REGEX "^ld-linux") # the C library's own loader
list(SORT needed)
expect_equal("libraries that the library needs" "${documented_libraries}" "${needed}")

# A static local variable that is initialized at run time has a lock, which might stay locked in the child of a fork.
run(symbols "${NM}" -D --undefined-only "${LIBRARY}")
if(symbols MATCHES "__cxa_guard_acquire")
    message(SEND_ERROR "expected no static local variable with a lock, got a call of __cxa_guard_acquire")
endif()

# A thread-local variable that is located at run time may be allocated at its first use, and a failure there ends the
# process.
run(relocations "${READELF}" -r -W "${LIBRARY}")
if(symbols MATCHES "__tls_get_addr" OR relocations MATCHES "DTPMOD|TLSDESC")
    message(SEND_ERROR "expected no thread-local variable that is allocated at its first use, got one")
endif()

# The only variables are those of the start and of the list of threads of quenta_native, and what the platform needs for
# them. Solvers write none.
run(symbols "${OBJDUMP}" -t --demangle "${LIBRARY}")
string(REGEX MATCHALL "[^\n]* \\.t?(bss|data)[\t ][^\n]*::[^\n]*" variables "${symbols}")
list(TRANSFORM variables REPLACE "^.*::" "")
list(SORT variables)
expect_equal("variables of the library" "${documented_variables}" "${variables}")

# The mathematical functions that the library calls.
run(libm "${COMPILER}" -print-file-name=libm.so.6)
string(STRIP "${libm}" libm)
run(symbols "${NM}" -D --defined-only --format=posix "${libm}")
string(REGEX MATCHALL "[^\n@]+@[^\n]*" lines "${symbols}")
list(TRANSFORM lines REPLACE "@.*" "" OUTPUT_VARIABLE mathematical)
run(symbols "${NM}" -D --undefined-only --format=posix "${LIBRARY}")
string(REGEX MATCHALL "[^\n]+" lines "${symbols}")
list(TRANSFORM lines REPLACE "[@ ].*" "" OUTPUT_VARIABLE undefined)
set(called "")
foreach(symbol IN LISTS undefined)
    if(symbol IN_LIST mathematical)
        list(APPEND called ${symbol})
    endif()
endforeach()
list(SORT called)
expect_equal("mathematical functions that the library calls" "${documented_functions}" "${called}")
