# SPDX-License-Identifier: Apache-2.0
# GoogleTest from Debian's source package: for a machine, or with a C++ library, that no package has it
# built for.
find_package(Threads REQUIRED)
set(googletest /usr/src/googletest/googletest)
add_library(zoflv_gtest STATIC ${googletest}/src/gtest-all.cc ${googletest}/src/gtest_main.cc)
target_include_directories(zoflv_gtest SYSTEM PUBLIC ${googletest}/include)
target_include_directories(zoflv_gtest PRIVATE ${googletest})
target_compile_options(zoflv_gtest PRIVATE -w)
target_link_libraries(zoflv_gtest PUBLIC Threads::Threads)
add_library(GTest::gtest_main ALIAS zoflv_gtest)
set(GTest_FOUND TRUE)
