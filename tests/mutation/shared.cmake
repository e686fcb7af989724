# For the mutation run only: the product's libraries as shared ones. After a change one object is compiled and one library
# linked, and every program that is there already has it.
include_guard(GLOBAL)
function(add_library name type)
    if(type STREQUAL STATIC AND name MATCHES "^(json|kelta|platform|settings|upnp|scan)$")
        set(type SHARED)
    endif()
    _add_library("${name}" ${type} ${ARGN})
endfunction()
