# 32-bit ARM with hardware floating point, as on the device
set(architecture armhf)
set(processor armv7l)
set(triplet arm-linux-gnueabihf)
set(emulator qemu-arm-static)
include("${CMAKE_CURRENT_LIST_DIR}/debian.cmake")
