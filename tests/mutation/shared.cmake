# For the mutation run only: the libraries of the product and of the tests as shared ones. After a change one object is
# compiled and one library linked, and every program that is there already has it.
include_guard(GLOBAL)
function(add_library name type)
    file(RELATIVE_PATH folder "${CMAKE_SOURCE_DIR}" "${CMAKE_CURRENT_SOURCE_DIR}")
    if(type STREQUAL STATIC AND (folder STREQUAL "tests/support" OR NOT folder MATCHES "^(tests|fuzz|bench)"))
        set(type SHARED)
    endif()
    _add_library("${name}" ${type} ${ARGN})
endfunction()
