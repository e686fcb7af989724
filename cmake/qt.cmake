# Which Qt the daemon is built with: 5 (what a PC has) or 4 (what the device's image has).
# Everything that the two need done differently in the build is in this file;
# what differs in the source is in core/qtcompat.h.
set(QT_MAJOR 5 CACHE STRING "Major version of Qt to build with: 5 or 4")
set_property(CACHE QT_MAJOR PROPERTY STRINGS 5 4)

set(CMAKE_CXX_STANDARD 11)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_AUTOMOC ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

if(QT_MAJOR EQUAL 4)
    if(QT_QMAKE_EXECUTABLE AND CMAKE_CROSSCOMPILING) # Qt 4 is looked for there as well as in the sysroot
        cmake_path(SET qt_kit NORMALIZE "${QT_QMAKE_EXECUTABLE}/../..")
        list(APPEND CMAKE_FIND_ROOT_PATH "${qt_kit}")
    endif()
    find_package(Qt4 4.8 REQUIRED QtCore QtNetwork QtDBus QtTest)
    set(qt_names QtCore QtNetwork QtDBus QtTest)
    # The header's qobject_cast() calls a function of what it does not know to be of that class
    set(QT_SANITIZER_OPTIONS -fno-sanitize=vptr)
    # As many descriptors as Qt 4's event loop can watch: it uses select(2)
    set(SERVICE_DESCRIPTORS 1024)
    macro(qt_add_dbus_interface)
        qt4_add_dbus_interface(${ARGN})
        # It has run moc on the generated header; unlike Qt 5's it forgets to say so.
        set_source_files_properties("${CMAKE_CURRENT_BINARY_DIR}/${ARGV2}.h" PROPERTIES SKIP_AUTOMOC TRUE)
    endmacro()
else()
    find_package(Qt5 5.15 REQUIRED Core Network DBus Test)
    set(qt_names Core Network DBus Test)
    set(SERVICE_DESCRIPTORS 4096)
    macro(qt_add_dbus_interface)
        qt5_add_dbus_interface(${ARGN})
    endmacro()
endif()

# qt_core, qt_network, qt_dbus, qt_test: the same names for both versions
set(qt_aliases qt_core qt_network qt_dbus qt_test)
foreach(alias name IN ZIP_LISTS qt_aliases qt_names)
    add_library(${alias} INTERFACE)
    target_link_libraries(${alias} INTERFACE Qt${QT_MAJOR}::${name})
endforeach()

# Text and bytes are converted by name, never silently: the two versions of Qt differ in the codec.
target_compile_definitions(qt_core INTERFACE
    QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII QT_NO_URL_CAST_FROM_STRING)
if(QT_MAJOR GREATER 4) # the headers of Qt 4's QtTest do so themselves
    target_compile_definitions(qt_core INTERFACE QT_NO_CAST_FROM_BYTEARRAY)
endif()
foreach(alias qt_network qt_dbus qt_test)
    target_link_libraries(${alias} INTERFACE qt_core)
endforeach()
