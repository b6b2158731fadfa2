# SPDX-License-Identifier: Apache-2.0
# For the machines of Machine.cmake, which have no package of zlib: the one function of it that is used.
add_library(zoflv_zlib INTERFACE)
target_include_directories(zoflv_zlib BEFORE INTERFACE ${CMAKE_CURRENT_LIST_DIR})
add_library(ZLIB::ZLIB ALIAS zoflv_zlib)
set(ZLIB_FOUND TRUE)
