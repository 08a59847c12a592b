# cmake -DMANIFEST=<hashes> -DDOCUMENT=<docs/other_machines.md> -P documented_hashes.cmake
#
# The document states how many hashes every_case writes.

cmake_minimum_required(VERSION 3.25)

file(STRINGS "${MANIFEST}" all)
set(transforms ${all})
list(FILTER transforms INCLUDE REGEX transformed)
list(LENGTH all all)
list(LENGTH transforms transforms)
math(EXPR others "${all} - ${transforms}")

file(READ "${DOCUMENT}" text)
string(REGEX REPLACE "[ \n]+" " " text "${text}")
function(expect_number pattern number)
    if(NOT text MATCHES "([0-9,]+) ${pattern}")
        message(FATAL_ERROR "${DOCUMENT}: expected the number of ${pattern}, got none")
    endif()
    string(REPLACE "," "" documented "${CMAKE_MATCH_1}")
    if(NOT documented EQUAL number)
        message(SEND_ERROR "${DOCUMENT}: expected ${number} ${pattern}, got ${documented}")
    endif()
endfunction()
expect_number("hashes of results by direct sums and blocks" ${others})
expect_number("hashes of results by transforms" ${transforms})
