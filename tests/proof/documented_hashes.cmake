# cmake -DMANIFEST=<hashes> -DDOCUMENT=<other machines> -DFIGURES=<figures of the assurance> -P documented_hashes.cmake
#
# Checks that the documents state the number of hashes that every_case writes.

cmake_minimum_required(VERSION 3.25)

file(STRINGS "${MANIFEST}" all)
set(transforms ${all})
list(FILTER transforms INCLUDE REGEX transformed)
list(LENGTH all all)
list(LENGTH transforms transforms)
math(EXPR others "${all} - ${transforms}")

function(expect_number file pattern number)
    file(READ "${file}" text)
    string(REGEX REPLACE "[ \n]+" " " text "${text}")
    if(NOT text MATCHES "([0-9,]+) ${pattern}")
        message(FATAL_ERROR "${file}: expected a number of ${pattern}, got none")
    endif()
    string(REPLACE "," "" documented "${CMAKE_MATCH_1}")
    if(NOT documented EQUAL number)
        message(SEND_ERROR "${file}: expected ${number} ${pattern}, got ${documented}")
    endif()
endfunction()
expect_number("${DOCUMENT}" "hashes of results by direct sums and blocks" ${others})
expect_number("${DOCUMENT}" "hashes of results by transforms" ${transforms})
expect_number("${FIGURES}" "hashes; [0-9]+ builds" ${all})
