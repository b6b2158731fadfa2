// SPDX-License-Identifier: Apache-2.0
#include "tests/support/flv_builder.h"
#include "zoflv/dmx/zoflv_conv.h"

#include <gtest/gtest.h>

#include <algorithm>

TEST(Conv, ReversesItsBytesAndNoOthers)
{
    struct Case {
        const char* name;
        void (*run)(uint8_t*);
        int group; // bytes reversed together, `count` times
        int count;
    };
    const Case cases[] = {
        {"u16", [](uint8_t* p) { zoflv_conv_u16(p); }, 2, 1},
        {"u24", [](uint8_t* p) { zoflv_conv_u24(p); }, 3, 1},
        {"u32", [](uint8_t* p) { zoflv_conv_u32(p); }, 4, 1},
        {"u64", [](uint8_t* p) { zoflv_conv_u64(p); }, 8, 1},
        {"buf_u16", [](uint8_t* p) { zoflv_conv_buf_u16(p, 3); }, 2, 3},
        {"buf_u32", [](uint8_t* p) { zoflv_conv_buf_u32(p, 2); }, 4, 2},
        {"buf_u64", [](uint8_t* p) { zoflv_conv_buf_u64(p, 2); }, 8, 2},
        {"buf_u16 none", [](uint8_t* p) { zoflv_conv_buf_u16(p, 0); }, 0, 0},
        {"buf_u64 none", [](uint8_t* p) { zoflv_conv_buf_u64(p, -1); }, 0, 0},
        {"reverse", [](uint8_t* p) { zoflv_conv_reverse(p, 11); }, 11, 1},
        {"reverse 1", [](uint8_t* p) { zoflv_conv_reverse(p, 1); }, 0, 0},
        {"conv 8", [](uint8_t* p) { zoflv_conv(p, 8); }, 8, 1},
        {"conv 0", [](uint8_t* p) { zoflv_conv(p, 0); }, 0, 0},
        {"conv 9", [](uint8_t* p) { zoflv_conv(p, 9); }, 0, 0},
        {"conv -1", [](uint8_t* p) { zoflv_conv(p, -1); }, 0, 0},
    };
    for (const Case& c : cases) {
        Bytes got = fill(24);
        Bytes want = got;
        for (int i = 0; i < c.count; ++i)
            std::reverse(&want[1] + i * c.group, &want[1] + (i + 1) * c.group);
        c.run(&got[1]); // not aligned
        EXPECT_EQ(got, want) << c.name;
    }
}

TEST(Conv, TimeWrapsAndSurvivesScaleZero)
{
    EXPECT_EQ(zoflv_conv_time(3, 7), 4285714U);
    EXPECT_EQ(zoflv_conv_time(UINT64_MAX, 1), 0 - uint64_t{10000000});
    EXPECT_EQ(zoflv_conv_time(uint64_t{1} << 63, 1000), 0U);
    EXPECT_EQ(zoflv_conv_time(5, 0), 0U);
}
