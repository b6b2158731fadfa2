// SPDX-License-Identifier: Apache-2.0
#include "tests/support/flv_builder.h"
#include "tests/support/log_capture.h"
#include "zoflv/dmx/zoflvd_bs.h"

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
    Bytes block;
};

template <auto F>
int64_t op(ZOFLVD_BS* bs, [[maybe_unused]] int n)
{
    if constexpr (std::is_invocable_v<decltype(F), ZOFLVD_BS*, int>)
        return F(bs, n);
    else
        return F(bs);
}
using Op = int64_t (*)(ZOFLVD_BS*, int);
constexpr Op next = op<zoflvd_bs_read>, peek = op<zoflvd_bs_peek>, read1 = op<zoflvd_bs_read1>,
             skip = op<zoflvd_bs_skip>, clz = op<zoflvd_bs_peek_clz>, ue = op<zoflvd_bs_read_ue>,
             se = op<zoflvd_bs_read_se>, te = op<zoflvd_bs_read_te>,
             more = op<zoflvd_bs_is_more_rbsp_data>,
             trailing = op<zoflvd_bs_read_rbsp_trailing_bits>;
constexpr Op skip1 = [](ZOFLVD_BS* bs, int) -> int64_t { return zoflvd_bs_read1_skip(bs), 0; };

} // namespace

TEST(Bs, ReadsAndTheirEdges)
{
    constexpr int64_t all = 0xFFFFFFFF;
    const LogCapture::Lines failed = {"E zoflvd_bs: #*"};
    const struct {
        const char* bytes;
        int at;
        std::vector<Op> ops; // each on its own
        int n;
        int64_t result;
        int pos;
        LogCapture::Lines log;
    } cases[] = {
        // past the end
        {"FF", 8, {next, read1, skip1, ue}, 3, 0, 8, failed},
        {"FF", 8, {te}, 1, 1, 8, failed},
        {"FF", 8, {trailing}, 0, -1, 8, failed},
        {"FF", 8, {skip, clz, more}, 5, 0, 8, {}},
        {"FF", 8, {next, peek, te}, 0, 0, 8, {}},
        // running past it
        {"FF", 4, {next}, 5, all, 9, failed},
        {"FF", 4, {next}, 4, 15, 8, {}},
        {"FF", 4, {peek}, 5, all, 4, failed},
        {"00 00", 3, {clz}, 0, 0, 3, {"E zoflvd_bs: bitstream buffer is out of bounds, [zoflv*]"}},
        {"01", 0, {ue}, 0, 127, 8, failed}, // 7 suffix bits, none there
        // counts out of range
        {"FF", 8, {next, peek}, 33, all, 8, failed},
        {"FF FF FF FF FF", 0, {next, peek}, -1, all, 0, failed},
        // values and codes
        {"A5 0F 93 7E C1", 7, {next}, 32, 0x87C9BF60, 39, {}},
        {"A5 0F 93 7E C1", 3, {next}, 5, 5, 8, {}},
        {"A5 0F 93 7E C1", 4, {peek}, 32, 0x50F937EC, 4, {}},
        {"00 00 00 00 80 00 00 02 80", 0, {ue}, 0, 4, 65, {}},          // the largest code, wrapped
        {"00 00 00 00 40 00 00 00 00 00", 0, {ue}, 0, all, 67, failed}, // 33 zeros
        {"00 00 00 00 40", 0, {ue}, 0, all, 40, failed},                // no farther than the end
        {"40", 0, {ue, se, te}, 2, 1, 3, {}},
        {"60", 0, {se}, 0, -1, 3, {}},
        // the payload's end
        {"F8", 4, {more}, 0, 0, 4, {}},
        {"01 00", 7, {more}, 0, 1, 7, {}},
        {"10", 3, {trailing}, 0, 0, 8, {}},
        {"14", 3, {trailing}, 0, -1, 6, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE("row " + std::to_string(&c - cases));
        for (const Op run : c.ops) {
            LogCapture log;
            Reader bs(hex(c.bytes), c.at);
            EXPECT_EQ(run(&bs, c.n), c.result);
            EXPECT_EQ(bs.pos(), c.pos);
            EXPECT_TRUE(log.is(c.log));
        }
    }
    int avail = 9;
    EXPECT_EQ(zoflvd_bs_peek_max(std::make_unique<Reader>(hex("FF"), 4).get(), 5, &avail), 15U);
    EXPECT_EQ(avail, 4);
}

TEST(Bs, StartCodesAndEmulationPrevention)
{
    const struct {
        const char* bytes;
        int at, rc, start, skipped;
        const char* payload; // without the emulation prevention
        int dropped;
    } cases[] = {
        {"00 00 01", 0, 0, 3, 3, "", 0},
        {"AA 00 00 01 65", 12, 0, 4, 3, "65", 0}, // the byte skipped is not counted
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
        zoflvd_bs_ebsp_to_rbsp(&bs);
        EXPECT_EQ(Bytes(bs.start, bs.last + 1), hex(c.payload));
        EXPECT_EQ(bs.skip_bytes, c.skipped + c.dropped);
    }
}

TEST(Bs, Writer)
{
    Bytes room(100, 0xEE);
    ZOFLVD_BS bs;
    zoflvd_bs_init(&bs, room.data(), 100, 1);
    EXPECT_EQ(zoflvd_bs_write1(&bs, 3), 1);
    EXPECT_EQ(zoflvd_bs_write(&bs, 0x9E3779B9, 32), 32);
    EXPECT_EQ(zoflvd_bs_write(&bs, 0xF5, 3), 3);
    EXPECT_EQ(zoflvd_bs_write(&bs, 1, 33), 0);
    EXPECT_EQ(values(zoflvd_bs_bits_written(&bs), zoflvd_bs_bytes_written(&bs)), values(36, 4));
    EXPECT_EQ(cut(room, 6), hex("CF 1B BC DC 0D EE")); // an open byte's bits lie low
}

TEST(Bs, PeeksAsManyAsThereAreAndCountsZeros)
{
    uint8_t byte = 0xA5;
    ZOFLVD_BS bs;
    zoflvd_bs_init(&bs, &byte, 1, 0);
    int avail = -7;
    EXPECT_EQ(zoflvd_bs_peek_max(&bs, 0, &avail), 0xFFFFFFFFU);
    EXPECT_EQ(avail, 0);
    EXPECT_EQ(zoflvd_bs_peek_max(&bs, 12, &avail), 0xA5U);
    EXPECT_EQ(zoflvd_bs_peek_max(&bs, 33, &avail), 0xFFFFFFFFU);
    zoflvd_bs_skip(&bs, 8);
    EXPECT_EQ(zoflvd_bs_peek_max(&bs, 1, &avail), 0U);
    EXPECT_EQ(avail, 8) << "written by a failure";
    for (const int zeros : {0, 7, 31})
        EXPECT_EQ(zoflvd_bs_clz_in_code(0xFFFFFFFFU >> zeros), zeros);
    EXPECT_EQ(zoflvd_bs_clz_in_code(0), 32);
    zoflvd_bs_init(&bs, &byte, -5, 0);
    EXPECT_EQ(zoflvd_bs_read1(&bs), 0U) << "a negative size counts as 0";
}
