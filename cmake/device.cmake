# The values that belong to the target device. core/device.h.in makes them C++; docs/porting.md says who else has them.

set(DEVICE_MANUFACTURER "Zorv")
set(DEVICE_MANUFACTURER_URL "http://www.zorv.example")
set(DEVICE_MODEL_NAME "Kelta")
set(DEVICE_MODEL_DESCRIPTION "Zorv Kelta industrial measurement")
set(DEVICE_MODEL_URL "${DEVICE_MANUFACTURER_URL}/kelta")

# The wired interface, whose addresses are announced, and where searches are received
set(DEVICE_INTERFACE "eth0")

# The icon, on the description server and in the device's file system
set(DEVICE_ICON_PATH "/icons/kelta_icon48.png")
set(DEVICE_ICON_FILE "/var/www${DEVICE_ICON_PATH}")

set(DEVICE_BUS_NAME "com.zorv.upnpvelorn")
# The user that the daemon runs as, who alone may own that name
set(DEVICE_USER "upnpvelorn")

# The firmware configuration service on the system bus
set(DEVICE_CONFIG_SERVICE "com.zorv.fwconfig")
set(DEVICE_SYSTEMVARIABLES_PATH "/systemvariables")
set(DEVICE_FW_VERSION_PATH "/fwversion")
set(DEVICE_SYSTEMCONSTANTS_PATH "/systemconstants")
set(DEVICE_NETWORK_PATH "/network")
set(DEVICE_NETWORK_INTERFACE "com.zorv.fwconfig.network")
set(DEVICE_SERIALNUMBER_KEY "SERIALNUMBER")

# Exists and is executable on devices with a CODESYS run-time system
set(DEVICE_CODESYS_PROGRAM "/opt/codesys/bin/codesyscontrol.bin")
