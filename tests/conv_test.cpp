// SPDX-License-Identifier: Apache-2.0
#include "tests/support/flv_builder.h"
#include "zoflv/dmx/zoflv_conv.h"

#include <gtest/gtest.h>

TEST(Conv, ReversesItsBytesAndNoOthers)
{
    const struct {
        void (*run)(void*, int);
        int argument;
        const char* left; // of the bytes 0 to 9; byte 1, not aligned, is given
    } cases[] = {
        {[](void* p, int) { zoflv_conv_u16(p); }, 0, "00 0201 03040506070809"},
        {[](void* p, int) { zoflv_conv_u24(p); }, 0, "00 030201 040506070809"},
        {[](void* p, int) { zoflv_conv_u32(p); }, 0, "00 04030201 0506070809"},
        {[](void* p, int) { zoflv_conv_u64(p); }, 0, "00 0807060504030201 09"},
        {zoflv_conv_buf_u16, 3, "00 0201 0403 0605 070809"},
        {zoflv_conv_buf_u32, 2, "00 04030201 08070605 09"},
        {zoflv_conv_buf_u64, -1, "00010203040506070809"},
        {zoflv_conv_reverse, 7, "00 07060504030201 0809"},
        {zoflv_conv, 8, "00 0807060504030201 09"},
        {zoflv_conv, 9, "00010203040506070809"},
    };
    for (const auto& c : cases) {
        Bytes bytes = fill(10);
        c.run(&bytes[1], c.argument);
        EXPECT_EQ(bytes, hex(c.left)) << "row " << &c - cases;
    }
}

TEST(Conv, TimeWrapsAndSurvivesScaleZero)
{
    EXPECT_EQ(zoflv_conv_time(3, 7), 4285714U);
    EXPECT_EQ(zoflv_conv_time(UINT64_MAX, 1), 0 - uint64_t{10000000});
    EXPECT_EQ(zoflv_conv_time(5, 0), 0U);
}
