# The simulated device needs the distribution's D-Bus binding, which no other Python has
find_program(SYSTEM_PYTHON python3 PATHS /usr/bin NO_DEFAULT_PATH)
if(NOT SYSTEM_PYTHON)
    message(FATAL_ERROR "The tests need /usr/bin/python3 with python3-dbus, python3-gi and python3-pytest")
endif()

# The executable that the black-box tests start: the daemon, or what runs it in the emulator of a cross build.
set(DAEMON_TO_TEST $<TARGET_FILE:upnpvelorn>)
if(CMAKE_CROSSCOMPILING_EMULATOR)
    set(DAEMON_TO_TEST "${CMAKE_BINARY_DIR}/upnpvelorn-emulated")
    string(REPLACE ";" "' '" emulator "'${CMAKE_CROSSCOMPILING_EMULATOR}'")
    file(GENERATE OUTPUT "${DAEMON_TO_TEST}" CONTENT "#!/bin/sh\nexec ${emulator} '$<TARGET_FILE:upnpvelorn>'\n"
        FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
endif()

# unit_test(tst_<class> [ISOLATED] LIBS <library>...)
# A QtTest program of one source file. ISOLATED: it opens the daemon's ports or a system bus, so it runs
# in a network, host name and mount namespace of its own with a private bus.
function(unit_test name)
    cmake_parse_arguments(arg "ISOLATED" "" "LIBS" ${ARGN})
    string(REPLACE ";" "|" emulator "${CMAKE_CROSSCOMPILING_EMULATOR}")
    add_executable(${name} ${name}.cpp)
    target_include_directories(${name} PRIVATE "${CMAKE_SOURCE_DIR}/tests/support")
    target_compile_definitions(${name} PRIVATE
        "TEST_DATA=\"${CMAKE_CURRENT_SOURCE_DIR}/data/\"" "SOURCE_ROOT=\"${CMAKE_SOURCE_DIR}/\""
        "EMULATOR=\"${emulator}\"")
    target_link_libraries(${name} PRIVATE ${arg_LIBS} qt_test)
    set(command ${name})
    if(arg_ISOLATED)
        set(command "${SYSTEM_PYTHON}" "${CMAKE_SOURCE_DIR}/simdevice/isolated.py"
            ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:${name}>)
    endif()
    add_test(NAME ${name} COMMAND ${command})
    set_tests_properties(${name} PROPERTIES ENVIRONMENT "LC_ALL=C;QT_LOGGING_RULES=" TIMEOUT 300
        SKIP_RETURN_CODE 77)
endfunction()
