# The camera's build: 32-bit ARM, hard float, Debian's cross compiler. Tests built with it
# run on this machine under qemu's user-mode emulator.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
# A device sysroot (-DNETLIB_SYSROOT=... or the environment variable) is searched first, so
# its libuci is found as on a native build (UCI_ROOT is then a prefix inside it).
set(NETLIB_SYSROOT "$ENV{NETLIB_SYSROOT}" CACHE PATH "Device sysroot for the cross build")
set(CMAKE_FIND_ROOT_PATH ${NETLIB_SYSROOT} /usr/arm-linux-gnueabihf)
if(NETLIB_SYSROOT)
  set(CMAKE_SYSROOT_LINK ${NETLIB_SYSROOT})
  add_link_options(-Wl,-rpath-link,${NETLIB_SYSROOT}/usr/lib -Wl,-rpath-link,${NETLIB_SYSROOT}/lib)
endif()
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
if(NETLIB_SYSROOT)
  set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L ${NETLIB_SYSROOT})
else()
  set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L /usr/arm-linux-gnueabihf)
endif()
