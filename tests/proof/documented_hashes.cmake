# cmake -DMANIFEST=<hashes> -DDOCUMENT=<other machines> -DFIGURES=<figures of the assurance> -P documented_hashes.cmake
#
# The numbers of hashes in the documents are those of the hashes that every_case writes.

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
        message(FATAL_ERROR "${file} has no number of ${pattern}")
    endif()
    string(REPLACE "," "" documented "${CMAKE_MATCH_1}")
    if(NOT documented EQUAL number)
        message(SEND_ERROR "${file}: ${documented} ${pattern}, but there are ${number}")
    endif()
endfunction()
expect_number("${DOCUMENT}" "hashes of results by direct sums and blocks" ${others})
expect_number("${DOCUMENT}" "hashes of results by transforms" ${transforms})
expect_number("${FIGURES}" "hashes; [0-9]+ builds" ${all})
