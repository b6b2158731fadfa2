# SPDX-License-Identifier: Apache-2.0
# For the machines of Machine.cmake: what has no package for them. GoogleTest is built from the source
# package, zlib replaced by the one function of it that is used.

add_library(zoflv_machine_zlib INTERFACE)
target_include_directories(zoflv_machine_zlib BEFORE INTERFACE ${PROJECT_SOURCE_DIR}/tests/machines)
add_library(ZLIB::ZLIB ALIAS zoflv_machine_zlib)

if(ZOFLV_BUILD_TESTS)
    find_package(Threads REQUIRED)
    set(googletest /usr/src/googletest/googletest)
    add_library(zoflv_machine_gtest STATIC ${googletest}/src/gtest-all.cc ${googletest}/src/gtest_main.cc)
    target_include_directories(zoflv_machine_gtest SYSTEM PUBLIC ${googletest}/include)
    target_include_directories(zoflv_machine_gtest PRIVATE ${googletest})
    target_compile_options(zoflv_machine_gtest PRIVATE -w)
    target_link_libraries(zoflv_machine_gtest PUBLIC Threads::Threads)
    add_library(GTest::gtest_main ALIAS zoflv_machine_gtest)
endif()
