// SPDX-License-Identifier: Apache-2.0
#include "tests/support/flv_builder.h"
#include "tests/support/log_capture.h"
#include "zoflv/dmx/zoflvd_bs.h"

#include <climits>
#include <memory>
#include <type_traits>

namespace {

/// A bit reader at bit `at` of a heap block of exactly the bytes' size.
struct Reader : ZOFLVD_BS {
    explicit Reader(const Bytes& bytes, int at = 0) : block(bytes)
    {
        zoflvd_bs_init(this, block.data(), static_cast<int>(block.size()), 0);
        cur += at / 8;
        bit_pos = at % 8;
    }
    int64_t pos() const { return (cur - block.data()) * 8 + bit_pos; }
    Bytes payload() const { return {start, last + 1}; }
    Bytes block;
};

constexpr int64_t ALL = 0xFFFFFFFF;

/// A value and the count that came with it, 9 when none was written.
constexpr int64_t with(int64_t avail, int64_t value)
{
    return avail << 32 | value;
}

template <auto F>
int64_t op(ZOFLVD_BS* bs, [[maybe_unused]] int n)
{
    int avail = 9;
    if constexpr (std::is_invocable_v<decltype(F), ZOFLVD_BS*, int, int*>) {
        const int64_t value = F(bs, n, &avail);
        return with(avail, value);
    } else if constexpr (std::is_invocable_v<decltype(F), ZOFLVD_BS*, int>) {
        return F(bs, n);
    } else if constexpr (std::is_same_v<decltype(F(bs)), void>) {
        return F(bs), 0;
    } else {
        return F(bs);
    }
}
using Op = int64_t (*)(ZOFLVD_BS*, int);
constexpr Op next = op<zoflvd_bs_read>, peek = op<zoflvd_bs_peek>, max = op<zoflvd_bs_peek_max>,
             read1 = op<zoflvd_bs_read1>, skip = op<zoflvd_bs_skip>, clz = op<zoflvd_bs_peek_clz>,
             ue = op<zoflvd_bs_read_ue>, se = op<zoflvd_bs_read_se>, te = op<zoflvd_bs_read_te>,
             more = op<zoflvd_bs_is_more_rbsp_data>, skip1 = op<zoflvd_bs_read1_skip>,
             trailing = op<zoflvd_bs_read_rbsp_trailing_bits>;

} // namespace

TEST(Bs, EdgesOfTheBuffer)
{
    const char* fine = nullptr;
    const char* failed = "E zoflvd_bs: #*";
    const char* bounds = "E zoflvd_bs: bitstream buffer is out of bounds, [zoflv/dmx/zoflvd_bs: *]";
    const char* ones = "FF FF FF FF FF";
    const char* long_code = "00 00 00 00 40 00 00 00 00 00"; // 33 zeros before the 1
    const struct {
        const char* bytes;
        int at;
        Op run;
        int n;
        int64_t result;
        int pos;
        const char* log;
    } cases[] = {
        // past the end
        {"FF", 8, next, 3, 0, 8, failed},
        {"FF", 99, next, 1, 0, 99, failed},
        {"FF", 8, next, 0, 0, 8, fine},
        {"FF", 8, next, 33, ALL, 8, failed},
        {"FF", 8, peek, 3, ALL, 8, failed},
        {"FF", 8, max, 3, with(9, 0), 8, failed},
        {"FF", 8, max, 33, with(9, ALL), 8, failed},
        {"FF", 8, read1, 0, 0, 8, failed},
        {"FF", 8, skip1, 0, 0, 8, failed},
        {"FF", 8, skip, 5, 0, 8, fine},
        {"FF", 8, clz, 0, 0, 8, fine},
        {"FF", 8, ue, 0, 0, 8, failed},
        {"FF", 8, se, 0, 0, 8, failed},
        {"FF", 8, te, 1, 1, 8, failed},
        {"FF", 8, te, 0, 0, 8, fine},
        {"FF", 8, more, 0, 0, 8, fine},
        {"FF", 8, trailing, 0, -1, 8, failed},
        // running past it
        {"FF", 4, next, 5, ALL, 9, failed},
        {"FF", 4, next, 32, ALL, 36, failed},
        {"FF", 4, peek, 5, ALL, 4, failed},
        {"FF", 4, max, 5, with(4, 15), 4, fine},
        {"FF", 4, max, 0, with(0, ALL), 4, fine},
        {"FF", 4, skip, 96, 0, 100, fine},
        {"00 00", 3, clz, 0, 0, 3, bounds},
        {"80", 1, ue, 0, 0, 2, bounds},
        {"02", 0, ue, 0, 62, 13, failed}, // 6 suffix bits, 1 there
        {"01", 0, ue, 0, 127, 8, failed}, // 7 suffix bits, none there
        // counts out of range
        {ones, 0, next, 33, ALL, 0, failed},
        {ones, 0, next, -1, ALL, 0, failed},
        {ones, 0, peek, 33, ALL, 0, failed},
        {ones, 0, max, 33, with(9, ALL), 0, failed},
        // codes
        {long_code, 0, ue, 0, ALL, 67, failed},
        {long_code, 0, se, 0, INT32_MIN, 67, failed},
        {"00 00 00 00 40", 0, ue, 0, ALL, 40, failed},
        {"80", 0, te, 1, 0, 1, fine},
        {"40", 0, te, 1, 1, 1, fine},
        {"40", 0, te, 2, 1, 3, fine},
        {"40", 0, te, -1, 0, 0, fine},
        // the payload's end
        {"80", 0, more, 0, 0, 0, fine},
        {"08", 0, more, 0, 1, 0, fine},
        {"F8", 4, more, 0, 0, 4, fine},
        {"F9", 4, more, 0, 1, 4, fine},
        {"80 00", 0, more, 0, 1, 0, fine},
        {"10", 3, trailing, 0, 0, 8, fine},
        {"01", 7, trailing, 0, 0, 8, fine},
        {"14", 3, trailing, 0, -1, 6, fine},
        {"00", 3, trailing, 0, -1, 3, fine},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE("row " + std::to_string(&c - cases));
        LogCapture log;
        Reader bs(hex(c.bytes), c.at);
        EXPECT_EQ(c.run(&bs, c.n), c.result);
        EXPECT_EQ(bs.pos(), c.pos);
        EXPECT_TRUE(log.is(c.log ? LogCapture::Lines{c.log} : LogCapture::Lines()));
    }
    for (const int size : {0, -3}) {
        ZOFLVD_BS bs;
        zoflvd_bs_init(&bs, nullptr, size, 0);
        EXPECT_EQ(zoflvd_bs_annexb_to_ebsp(&bs), -1);
        zoflvd_bs_ebsp_to_rbsp(&bs);
        EXPECT_EQ(zoflvd_bs_read1(&bs), 0U);
    }
}

TEST(Bs, BitsAtEveryPosition)
{
    LogCapture log;
    const uint64_t all = 0xA50F937EC168;
    for (int at = 0; at <= 16; ++at) {
        for (int n = 1; n <= 32; ++n) {
            for (const Op run : {next, peek, max, read1}) {
                Reader bs(be(all, 6), at);
                const int bits = run == read1 ? 1 : n;
                EXPECT_EQ(static_cast<uint32_t>(run(&bs, n)), all << (16 + at) >> (64 - bits));
                EXPECT_EQ(bs.pos(), run == next || run == read1 ? at + bits : at);
            }
        }
    }
    for (int one = 0; one < 72; ++one) {
        for (int at = 0; at <= one; ++at) {
            Reader bs(Bits().u(one, 0).u(8, 0xD5).bytes(), at);
            EXPECT_EQ(zoflvd_bs_peek_clz(&bs), static_cast<uint32_t>(one - at)) << at;
        }
        EXPECT_EQ(zoflvd_bs_clz_in_code(static_cast<uint32_t>(uint64_t{0xFFFFFFFF} >> one % 33)),
                  one % 33);
    }
    EXPECT_TRUE(log.is({}));
}

TEST(Bs, ExpGolombCodes)
{
    LogCapture log;
    for (const uint64_t k : {0ULL, 1ULL, 2ULL, 6ULL, 7ULL, 0xFFFEULL, 0x7FFFFFFFULL, 0xFFFFFFFEULL,
                             0xFFFFFFFFULL, 0x100000004ULL}) { // the last: 32 zeros, wrapped
        for (int at = 0; at < 8; ++at) {
            const Bits code = Bits().u(at, 0xFF).ue(k);
            Reader bs(code.bytes(), at);
            EXPECT_EQ(zoflvd_bs_read_ue(&bs), static_cast<uint32_t>(k));
            EXPECT_EQ(bs.pos(), code.size());
        }
    }
    for (const int64_t v : {0LL, 1LL, -1LL, 2LL, -2LL, 1000LL, INT_MAX + 0LL, -INT_MAX + 0LL,
                            INT_MAX + 1LL}) // the last: the largest code, wrapped
        EXPECT_EQ(se(std::make_unique<Reader>(Bits().se(v).bytes()).get(), 0), static_cast<int>(v));
    EXPECT_TRUE(log.is({}));
}

TEST(Bs, StartCodesAndEmulationPrevention)
{
    const struct {
        const char* bytes;
        int at, rc, start, skipped;
        const char* payload; // without the emulation prevention
        int dropped;
    } cases[] = {
        {"00 00 00 01 67", 0, 0, 4, 4, "67", 0},
        {"00 00 01", 0, 0, 3, 3, "", 0},
        {"00 00 02 01", 0, -1, 0, 0, "00 00 02 01", 0},
        {"00 00 01 65", 8, -1, 0, 0, "00 00 01 65", 0},
        {"AA BB 00 00", 16, -1, 0, 0, "AA BB 00 00", 0},
        {"AA 00 00 01 65", 12, 0, 4, 3, "65", 0}, // the passed byte is not counted
        {"25 00 00 03 01 00 00 03", 0, -1, 0, 0, "25 00 00 01 00 00", 2},
        {"00 00 00 03 01", 0, -1, 0, 0, "00 00 00 03 01", 0},
        {"00 00 03 03 00 03", 0, -1, 0, 0, "00 00 03 00 03", 1},
        {"00 00 01 00 00 03 00 00 03 01", 0, 0, 3, 3, "00 00 00 00 01", 2},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.bytes);
        Reader bs(hex(c.bytes), c.at);
        EXPECT_EQ(zoflvd_bs_annexb_to_ebsp(&bs), c.rc);
        EXPECT_EQ(bs.start - bs.org, c.start);
        EXPECT_EQ(bs.skip_bytes, c.skipped);
        EXPECT_EQ(bs.pos(), c.rc ? c.at : c.start * 8 + c.at % 8);
        zoflvd_bs_ebsp_to_rbsp(&bs);
        EXPECT_EQ(bs.payload(), hex(c.payload));
        EXPECT_EQ(bs.skip_bytes, c.skipped + c.dropped);
    }
    Reader bs(hex("00 00 01 65 00 00 01 41"));
    EXPECT_EQ(zoflvd_bs_annexb_to_ebsp(&bs), 0);
    EXPECT_EQ(zoflvd_bs_annexb_to_ebsp(&bs), 0);
    EXPECT_EQ(bs.skip_bytes, 7);
    EXPECT_EQ(bs.payload(), hex("41"));
}

TEST(Bs, Writer)
{
    Bytes room(100, 0xEE);
    Bits model;
    ZOFLVD_BS bs;
    zoflvd_bs_init(&bs, room.data(), 100, 1);
    for (int n = 1; n <= 32; ++n) {
        EXPECT_EQ(zoflvd_bs_write(&bs, 0x9E3779B9U * static_cast<uint32_t>(n), n), n);
        EXPECT_EQ(zoflvd_bs_write1(&bs, 2), 1); // the lowest bit counts
        model.u(n, 0x9E3779B9U * static_cast<uint32_t>(n)).u(1, 0);
    }
    EXPECT_EQ(zoflvd_bs_write(&bs, 0xF5, 3), 3);
    EXPECT_EQ(zoflvd_bs_write(&bs, 1, 0) + zoflvd_bs_write(&bs, 1, 33), 0);
    EXPECT_EQ(zoflvd_bs_bytes_written(&bs), 70);
    EXPECT_EQ(zoflvd_bs_bits_written(&bs), 563);
    EXPECT_EQ(cut(room, 72), cat({model.bytes(), hex("05 EE")})); // an open byte's bits lie low
}
