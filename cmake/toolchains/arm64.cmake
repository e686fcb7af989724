# 64-bit ARM
set(architecture arm64)
set(processor aarch64)
set(triplet aarch64-linux-gnu)
set(emulator qemu-aarch64-static)
include("${CMAKE_CURRENT_LIST_DIR}/debian.cmake")
