// SPDX-License-Identifier: Apache-2.0
#include "tests/support/demux.h"
#include "zoflv/dmx/zoflvd_rdbuf.h"

#include <climits>

namespace {

/// A read buffer at bit `at` of a heap block of exactly the bytes' size.
struct Buffer : ZOFLVD_RDBUF {
    explicit Buffer(const Bytes& bytes, int at = 0) : block(bytes.size())
    {
        MemFile file(bytes);
        const int count = static_cast<int>(bytes.size());
        EXPECT_EQ(zoflvd_rdbuf_init(this, block.data(), count, file.mfal(), file.fh(), 1), 0);
        cur += at / 8;
        bit_pos = static_cast<uint32_t>(at % 8);
    }
    int64_t pos() const { return (cur - base) * 8 + bit_pos; } ///< bits
    Bytes block;
};

} // namespace

TEST(Rdbuf, InitReadsOnceOrFails)
{
    MemFile file(fill(16));
    ZOFLVD_RDBUF rb;
    std::memset(&rb, 0xFF, sizeof rb); // stale fields
    uint8_t block[12];
    LogCapture log;
    ASSERT_EQ(zoflvd_rdbuf_init(&rb, block, 11, file.mfal(), file.fh(), 0), 0);
    EXPECT_TRUE(!rb.bit_pos && rb.base == block && rb.cur == block && rb.size == 11);
    EXPECT_EQ(zoflvd_rdbuf_remained(&rb), 11U);
    EXPECT_EQ(file.calls(), 1);
    EXPECT_EQ(zoflvd_rdbuf_init(&rb, block, 11, file.mfal(), file.fh(), 0), 1); // 5 left
    EXPECT_TRUE(!rb.bit_pos && !rb.base && !rb.cur && !rb.end && !rb.size);
    EXPECT_TRUE(log.is(lines("cut")));
}

TEST(Rdbuf, Failures)
{
    static uint32_t out;
    const struct {
        int at;
        int (*run)(ZOFLVD_RDBUF*);
        const char* log;
    } cases[] = {
        {40, [](auto* rb) { return zoflvd_rdbuf_int16(rb, nullptr); }, "rb #112|rb #217"},
        {32, [](auto* rb) { return zoflvd_rdbuf_int24(rb, &out); }, "rb #112|rb #245"},
        {24, [](auto* rb) { return zoflvd_rdbuf_int32(rb, nullptr); }, "rb #112|rb #230"},
        {24, [](auto* rb) { return zoflvd_rdbuf_read(rb, nullptr, 4); }, "rb #112"},
        {48, [](auto* rb) { return zoflvd_rdbuf_read(rb, nullptr, -1); }, "rb #108"},
        {48, [](auto* rb) { return zoflvd_rdbuf_bits(rb, 33, &out); }, "rb #157|rb #200"},
        {41, [](auto* rb) { return zoflvd_rdbuf_bits(rb, 8, &out); }, "rb #166|rb #200"},
        {7, [](auto* rb) { return zoflvd_rdbuf_bits(rb, 33, &out); }, "rb #166|rb #200"},
        {8, [](auto* rb) { return zoflvd_rdbuf_bits(rb, 0, &out); }, "rb #166|rb #200"},
    };
    for (const auto& c : cases) {
        LogCapture log;
        Buffer rb(fill(6), c.at);
        EXPECT_EQ(c.run(&rb), -1);
        EXPECT_EQ(rb.pos(), c.at);
        EXPECT_TRUE(log.is(lines(c.log))) << "row " << &c - cases;
    }
}

TEST(Rdbuf, ReadsAndMovesWithinTheBlock)
{
    uint8_t u8 = 0;
    uint16_t u16 = 0;
    uint32_t u24 = 0;
    uint32_t u32 = 0;
    Buffer rb(hex("FE FF FD 01 02 03 FC 00 01 80"), 3); // bit positions have no say
    EXPECT_EQ(zoflvd_rdbuf_byte(&rb, &u8) | zoflvd_rdbuf_int16(&rb, &u16), 0);
    EXPECT_EQ(zoflvd_rdbuf_int24(&rb, &u24) | zoflvd_rdbuf_int32(&rb, &u32), 0);
    EXPECT_EQ(values(u8, u16, u24, u32), values(0xFE, 0xFFFD, 0x010203, 0xFC000180));
    EXPECT_TRUE(zoflvd_rdbuf_eob(&rb) && !zoflvd_rdbuf_cur(&rb));
    EXPECT_EQ(zoflvd_rdbuf_rewind(&rb, 7), 0);
    EXPECT_EQ(zoflvd_rdbuf_bits(&rb, 5, &u24) | zoflvd_rdbuf_bits(&rb, 7, &u32), 0);
    EXPECT_EQ(values(u24, u32), values(1, 1)); // up to a byte's end, and into the next
    EXPECT_EQ(zoflvd_rdbuf_bits(&rb, 3, &u24) | zoflvd_rdbuf_bits(&rb, 32, &u32), 0);
    EXPECT_EQ(values(u24, u32), values(0, 0x0FF00006));
    EXPECT_EQ(rb.pos(), 9 * 8 + 2);
    EXPECT_EQ(zoflvd_rdbuf_bits(&rb, 6, &u24), 0); // the last
    EXPECT_EQ(zoflvd_rdbuf_rewind(&rb, 10), 0);    // more than there are: to the start
    EXPECT_EQ(zoflvd_rdbuf_read(&rb, nullptr, 5) | zoflvd_rdbuf_rewind(&rb, 0), 0);
    EXPECT_EQ(zoflvd_rdbuf_cur(&rb), rb.base);
}

TEST(Rdbuf, EcmaStrings)
{
    const Bytes name = cat({be(4, 2), ascii("name")});
    const char* too_short = "rb #112|rb failed to read string (not enough data in buffer)";
    const struct {
        Bytes bytes;
        int capacity, rc, length, moved;
        const char* text; // in a room of '.'
        const char* log;
    } cases[] = {
        {name, 4, 0, 4, 6, "name..", ""}, // without a terminator
        {be(0, 2), 0, 0, 0, 2, "......", ""},
        {name, 3, -1, 4, 2, "......", "rb string too large (4 bytes) for buffer (3 bytes)"},
        {hex("80 00 01"), 6, -1, 0x8000, 2, "......", "rb invalid string len -32768"},
        {cut(name, 5), 6, -1, 4, 2, "......", too_short},
        {cut(name, 1), 6, -1, 0xEEEE, 0, "......", "rb #112|rb #217"},
    };
    for (const auto& c : cases) {
        LogCapture log;
        Buffer rb(c.bytes);
        std::string text(6, '.');
        uint16_t length = 0xEEEE;
        EXPECT_EQ(zoflvd_rdbuf_ecma_str(&rb, text.data(), &length, c.capacity), c.rc);
        EXPECT_EQ(text, c.text);
        EXPECT_EQ(length, c.length);
        EXPECT_EQ(rb.pos(), c.moved * 8);
        EXPECT_TRUE(log.is(lines(c.log)));
    }
}
