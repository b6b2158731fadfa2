# SPDX-License-Identifier: Apache-2.0
# Toolchain of the presets for other machines: Debian's cross compiler for the triplet ZOFLV_MACHINE,
# and ZOFLV_QEMU, the user-mode emulator that runs the tests.
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ZOFLV_MACHINE ZOFLV_QEMU)

set(CMAKE_SYSTEM_NAME Linux)
string(REGEX REPLACE "-.*" "" CMAKE_SYSTEM_PROCESSOR ${ZOFLV_MACHINE})
set(CMAKE_CXX_COMPILER ${ZOFLV_MACHINE}-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR ${ZOFLV_QEMU} -L /usr/${ZOFLV_MACHINE})
