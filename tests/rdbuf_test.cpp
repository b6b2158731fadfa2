// SPDX-License-Identifier: Apache-2.0
#include "tests/support/log_capture.h"
#include "tests/support/mem_file.h"
#include "zoflv/dmx/zoflvd_rdbuf.h"

#include <climits>

namespace {

/// A read buffer over a heap block of exactly the bytes' size.
struct Buffer : ZOFLVD_RDBUF {
    explicit Buffer(const Bytes& bytes) : block(bytes.size())
    {
        MemFile file(bytes);
        const int count = static_cast<int>(bytes.size());
        EXPECT_EQ(zoflvd_rdbuf_init(this, block.data(), count, file.mfal(), file.fh(), 1), 0);
    }
    int64_t pos() const { return (cur - base) * 8 + bit_pos; } ///< bits
    Bytes block;
};

using Lines = LogCapture::Lines;

Lines checks(std::initializer_list<int> numbers)
{
    Lines out;
    for (const int number : numbers)
        out.push_back("E zoflvd_rdbuf: #" + std::to_string(number));
    return out;
}

} // namespace

TEST(Rdbuf, InitReadsOnceOrFails)
{
    MemFile file(fill(16));
    ZOFLVD_RDBUF rb;
    uint8_t block[12];
    LogCapture log;
    for (const int clear : {0, 1}) {
        std::memset(&rb, 0xFF, sizeof rb); // stale fields
        ASSERT_EQ(zoflvd_rdbuf_init(&rb, block, 11, file.reset().seek(0).mfal(), file.fh(), clear),
                  0);
        EXPECT_TRUE(!rb.bit_pos && rb.base == block && rb.cur == block && rb.size == 11);
        EXPECT_EQ(zoflvd_rdbuf_remained(&rb), 11U);
        EXPECT_EQ(file.calls(), 1);
        EXPECT_EQ(file.tell(), 11);
        EXPECT_TRUE(log.is({}));
        EXPECT_EQ(zoflvd_rdbuf_init(&rb, block, 11, file.mfal(), file.fh(), clear), 1); // 5 left
        EXPECT_TRUE(!rb.bit_pos && !rb.base && !rb.cur && !rb.end && !rb.size);
        EXPECT_EQ(file.tell(), 16);
        EXPECT_TRUE(log.is({"W zoflvd_rdbuf: fread() failed, EOF?",
                            "E zoflvd_rdbuf: zoflvd_rdbuf_init() failed"}));
    }
    ASSERT_EQ(zoflvd_rdbuf_init(&rb, block, 0, file.mfal(), file.fh(), 1), 0);
    EXPECT_EQ(zoflvd_rdbuf_eob(&rb), 1);
    EXPECT_EQ(zoflvd_rdbuf_cur(&rb), nullptr);
    EXPECT_EQ(zoflvd_rdbuf_remained(&rb), 0U);
}

TEST(Rdbuf, ByteReads)
{
    uint8_t u8 = 0;
    uint16_t u16 = 0;
    uint32_t u32 = 0;
    LogCapture log;
    Buffer rb(hex("FE FF FD 01 02 03 FC 00 01 00"));
    rb.bit_pos = 3; // has no say
    EXPECT_EQ(zoflvd_rdbuf_byte(&rb, &u8) | zoflvd_rdbuf_int16(&rb, &u16), 0);
    EXPECT_EQ(zoflvd_rdbuf_int24(&rb, &u32), 0);
    EXPECT_TRUE(u8 == 0xFE && u16 == 0xFFFD && u32 == 0x010203);
    EXPECT_EQ(zoflvd_rdbuf_int32(&rb, &u32), 0);
    EXPECT_EQ(u32, 0xFC000100);
    EXPECT_EQ(rb.pos(), 10 * 8 + 3);
    for (const bool keep : {true, false}) {
        EXPECT_EQ(zoflvd_rdbuf_byte(&rb, keep ? &u8 : nullptr), -1);
        EXPECT_TRUE(log.is(checks({112})));
        rb.cur = rb.end - 1;
        EXPECT_EQ(zoflvd_rdbuf_int16(&rb, keep ? &u16 : nullptr), -1);
        EXPECT_TRUE(log.is(checks({112, 217})));
        rb.cur = rb.end - 3;
        EXPECT_EQ(zoflvd_rdbuf_int32(&rb, keep ? &u32 : nullptr), -1);
        EXPECT_TRUE(log.is(checks({112, 230})));
        EXPECT_EQ(rb.pos(), 7 * 8 + 3);
        rb.cur = rb.end - 2;
        EXPECT_EQ(zoflvd_rdbuf_int24(&rb, keep ? &u32 : nullptr), -1);
        EXPECT_TRUE(log.is(keep ? checks({112, 245}) : Lines()));
        rb.cur = rb.base; // without a place for it, a value is passed over
        EXPECT_EQ(zoflvd_rdbuf_byte(&rb, nullptr) | zoflvd_rdbuf_int16(&rb, nullptr), 0);
        EXPECT_EQ(zoflvd_rdbuf_int24(&rb, nullptr), -1); // but here it is required
        EXPECT_EQ(zoflvd_rdbuf_int32(&rb, nullptr), 0);
        EXPECT_EQ(rb.pos(), 7 * 8 + 3);
        rb.cur = rb.end;
    }
    EXPECT_TRUE(log.is({}));
    EXPECT_TRUE(u8 == 0xFE && u16 == 0xFFFD && u32 == 0xFC000100);
}

TEST(Rdbuf, CopiesAndMovesWithinTheBlock)
{
    LogCapture log;
    Buffer rb(fill(6));
    Bytes got(4);
    EXPECT_EQ(zoflvd_rdbuf_read(&rb, got.data(), 4), 0);
    EXPECT_EQ(got, fill(4));
    EXPECT_EQ(zoflvd_rdbuf_rewind(&rb, 1), 0);
    EXPECT_EQ(zoflvd_rdbuf_cur(&rb), rb.base + 3);
    EXPECT_EQ(zoflvd_rdbuf_read(&rb, nullptr, 4), -1);
    EXPECT_EQ(zoflvd_rdbuf_read(&rb, nullptr, INT_MAX), -1);
    EXPECT_EQ(zoflvd_rdbuf_read(&rb, nullptr, -1), -1);
    EXPECT_TRUE(log.is(checks({112, 112, 108})));
    EXPECT_EQ(zoflvd_rdbuf_remained(&rb), 3U);
    EXPECT_EQ(zoflvd_rdbuf_read(&rb, nullptr, 3), 0);
    EXPECT_EQ(zoflvd_rdbuf_read(&rb, got.data(), 0), 0);
    EXPECT_EQ(zoflvd_rdbuf_eob(&rb), 1);
    for (const int count : {7, 0, -5, INT_MIN}) {
        rb.cur = rb.end;
        EXPECT_EQ(zoflvd_rdbuf_rewind(&rb, count), 0);
        EXPECT_EQ(rb.cur, rb.base) << count;
    }
    EXPECT_TRUE(log.is({}));
}

TEST(Rdbuf, BitsAtEveryPosition)
{
    LogCapture log;
    const uint64_t all = 0xA50F937EC168;
    Buffer rb(be(all, 6));
    for (uint32_t at = 0; at <= 16; ++at) {
        for (int n = 1; n <= 32; ++n) {
            rb.cur = rb.base + at / 8;
            rb.bit_pos = at % 8;
            uint32_t got = 0;
            EXPECT_EQ(zoflvd_rdbuf_bits(&rb, n, &got), 0);
            EXPECT_EQ(got, all << (16 + at) >> (64 - n)) << at << " " << n;
            EXPECT_EQ(rb.pos(), at + static_cast<uint32_t>(n));
        }
    }
    EXPECT_TRUE(log.is({}));
    const struct {
        int at, n, check;
    } cases[] = {{48, 1, 157}, {48, 33, 157}, {41, 8, 166}, {47, 32, 166},
                 {8, 0, 166},  {8, 33, 166},  {8, -1, 166}, {8, INT_MAX, 166}};
    for (const auto& c : cases) {
        rb.cur = rb.base + c.at / 8;
        rb.bit_pos = static_cast<uint32_t>(c.at % 8);
        uint32_t got = 7;
        EXPECT_EQ(zoflvd_rdbuf_bits(&rb, c.n, &got), -1);
        EXPECT_EQ(rb.pos(), c.at);
        EXPECT_EQ(got, 7U);
        EXPECT_TRUE(log.is(checks({c.check, 200}))) << c.at << " " << c.n;
    }
}

TEST(Rdbuf, EcmaStrings)
{
    const Bytes name = cat({be(10, 2), ascii("onMetaData")});
    const std::string large = "E zoflvd_rdbuf: string too large (10 bytes) for buffer (9 bytes)";
    const std::string negative = "E zoflvd_rdbuf: invalid string len -32768";
    const std::string no_data = "E zoflvd_rdbuf: failed to read string (not enough data in buffer)";
    const struct {
        Bytes bytes;
        size_t capacity;
        int rc, length, moved;
        Lines log;
    } cases[] = {
        {name, 32, 0, 10, 12, {}},
        {name, 10, 0, 10, 12, {}},
        {be(0, 2), 0, 0, 0, 2, {}},
        {name, 9, -1, 10, 2, {large}},
        {hex("80 00 01"), 32, -1, 0x8000, 2, {negative}},
        {cut(name, 11), 32, -1, 10, 2, {"E zoflvd_rdbuf: #112", no_data}},
        {cut(name, 1), 32, -1, 0xEEEE, 0, checks({112, 217})},
    };
    for (const auto& c : cases) {
        for (const bool keep : {true, false}) {
            LogCapture log;
            Buffer rb(c.bytes);
            Bytes text(c.capacity, 0xEE);
            Bytes want = text; // neither a terminator nor a failed read's bytes
            uint16_t length = 0xEEEE;
            char* dst = keep ? reinterpret_cast<char*>(text.data()) : nullptr;
            const int room = static_cast<int>(c.capacity);
            EXPECT_EQ(zoflvd_rdbuf_ecma_str(&rb, dst, &length, room), c.rc);
            EXPECT_EQ(length, c.length);
            EXPECT_EQ(rb.pos(), c.moved * 8);
            EXPECT_TRUE(log.is(c.log));
            if (keep && c.rc == 0)
                std::copy(c.bytes.begin() + 2, c.bytes.end(), want.begin());
            EXPECT_EQ(text, want);
        }
    }
    LogCapture log;
    Buffer rb(name);
    EXPECT_EQ(zoflvd_rdbuf_ecma_str(&rb, nullptr, nullptr, 32), -1);
    EXPECT_EQ(rb.pos(), 0);
    EXPECT_TRUE(log.is({}));
}
