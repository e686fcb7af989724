# Where everything goes in a device's image or in a package. A distribution that has these folders elsewhere sets them.
include(GNUInstallDirs)
set(SYSTEMD_UNIT_DIR "lib/systemd/system" CACHE STRING "Folder of systemd's service files")
set(SYSUSERS_DIR "lib/sysusers.d" CACHE STRING "Folder of systemd's lists of system users")
set(DBUS_DIR "${CMAKE_INSTALL_DATADIR}/dbus-1" CACHE STRING "Folder of D-Bus, whose system.d holds the bus policies")

set(packaging "${CMAKE_BINARY_DIR}/packaging")
configure_file(packaging/bus-policy.conf.in "${packaging}/${DEVICE_BUS_NAME}.conf" @ONLY)
configure_file(packaging/sysusers.conf.in "${packaging}/upnpvelorn.conf" @ONLY)
# The service file names the daemon's full path, which is known only to `cmake --install`: it can be given a prefix.
install(CODE "
    set(DEVICE_BUS_NAME \"${DEVICE_BUS_NAME}\")
    set(DEVICE_USER \"${DEVICE_USER}\")
    set(SERVICE_DESCRIPTORS ${SERVICE_DESCRIPTORS})
    set(SBINDIR \"${CMAKE_INSTALL_SBINDIR}\")
    cmake_path(ABSOLUTE_PATH SBINDIR BASE_DIRECTORY \"\${CMAKE_INSTALL_PREFIX}\")
    configure_file(\"${CMAKE_SOURCE_DIR}/packaging/upnpvelorn.service.in\" \"${packaging}/upnpvelorn.service\" @ONLY)")

install(TARGETS upnpvelorn RUNTIME DESTINATION "${CMAKE_INSTALL_SBINDIR}")
install(TARGETS upnpvelornctl RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")
install(FILES "${packaging}/upnpvelorn.service" DESTINATION "${SYSTEMD_UNIT_DIR}")
install(FILES "${packaging}/upnpvelorn.conf" DESTINATION "${SYSUSERS_DIR}")
install(FILES "${packaging}/${DEVICE_BUS_NAME}.conf" DESTINATION "${DBUS_DIR}/system.d")
install(DIRECTORY packaging/interfaces/ DESTINATION "${DBUS_DIR}/interfaces" FILES_MATCHING PATTERN "*.xml")
install(FILES man/upnpvelorn.8 DESTINATION "${CMAKE_INSTALL_MANDIR}/man8")
install(PROGRAMS tools/upnpvelorn-browse DESTINATION "${CMAKE_INSTALL_BINDIR}")
install(FILES man/upnpvelorn-browse.1 man/upnpvelornctl.1 DESTINATION "${CMAKE_INSTALL_MANDIR}/man1")
install(FILES tools/upnpvelorn-browse.bash DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions"
    RENAME upnpvelorn-browse)
install(FILES tools/ctl/upnpvelornctl.bash DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions"
    RENAME upnpvelornctl)
install(FILES wireshark/kelta.lua DESTINATION "${CMAKE_INSTALL_DATADIR}/upnpvelorn")
install(FILES README.md CHANGELOG.md LICENSE DESTINATION "${CMAKE_INSTALL_DOCDIR}")
# What those two and docs/ lead to
install(FILES CONTRIBUTING.md DESTINATION "${CMAKE_INSTALL_DOCDIR}")
foreach(folder bench simdevice)
    install(FILES ${folder}/README.md DESTINATION "${CMAKE_INSTALL_DOCDIR}/${folder}")
endforeach()
install(DIRECTORY docs/ DESTINATION "${CMAKE_INSTALL_DOCDIR}/docs" FILES_MATCHING PATTERN "*.md" PATTERN "*.svg")
install(DIRECTORY examples/ DESTINATION "${CMAKE_INSTALL_DOCDIR}/examples"
    FILES_MATCHING PATTERN "*.py" PATTERN "*.cpp" PATTERN "CMakeLists.txt")
