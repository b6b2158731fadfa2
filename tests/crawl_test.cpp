// SPDX-License-Identifier: Apache-2.0
#include "tests/support/seek.h"
#include "zoflv/dmx/zoflvd_crawl.h"

namespace {

//                                0   1   2   3   4   5    6    7    8    9    10
const FlvBuilder flv = short_file("S0 K40 A40 P80 A80 K120 A120 P160 A160 K200 A200");
const auto file_end = static_cast<int64_t>(flv.size());

/// Tag number `i`; for a number below 0 the one of -`i`, its flags set.
ZOFLVD_TAG tag(int i)
{
    const FlvBuilder::Tag& t = flv.tags()[static_cast<size_t>(std::abs(i))];
    return {t.type, static_cast<uint32_t>(t.size), t.time_ms * MS,
            0,      static_cast<int64_t>(t.pos),   i < 0,
            i < 0};
}

int64_t pos(int i)
{
    return tag(i).pos;
}

struct Crawl : BareStrm {
    using BareStrm::BareStrm;

    /// r reverse, f reverse forward, d duration
    int set_up(char by, const ZOFLVD_TAG& start, int64_t target_ms)
    {
        const int64_t target = target_ms * MS;
        const int64_t end = s.sh.data_start + s.sh.data_len;
        std::fill_n(reinterpret_cast<uint8_t*>(&c), sizeof c, uint8_t{0xEE});
        const ZOFLVD_CRAWL_RANGE range = {&s.mfal, s.fh, s.sh.strm_type, s.sh.data_start, end};
        return by == 'r'   ? zoflvd_crawl_init_reverse(&c, &start, &target, &range)
               : by == 'f' ? zoflvd_crawl_init_reverse_forw(&c, &start, &target, &range)
                           : zoflvd_crawl_init_find_duration(&c, &s.mfal, s.fh, &start,
                                                             &s.sh.data_start, &end);
    }
    int drive()
    {
        int rc = 0;
        while (rc == 0)
            rc = c.next(&c) < 0 ? -1 : c.check(&c);
        return rc;
    }

    ZOFLVD_CRAWL c;
};

TEST(Crawl, KeepsToItsBoundsAndTrustsNoPreviousTagSize)
{
    const struct {
        char by;
        uint8_t type;
        int start, target_ms, answer; // numbers of tags
        int64_t pos_min = 13, pos_max = file_end;
        int64_t prev_size = 13; // the field in front of tag 5
        bool found = true;      // else the crawler stays at `answer`
    } cases[] = {
        {'d', 8, 0, 0, 10},
        {'d', 8, 0, 0, 6, 13, pos(7)},
        {'d', 8, -8, 0, 8, 13, pos(7)},
        {'f', 9, 7, 999, 8, 13, pos(9), 13, false},
        {'f', 9, 7, 999, 9, 13, pos(9) + 1, 13, false},
        {'f', 9, 1, 999, 8, pos(5), pos(9), 13, false},
        {'f', 9, 1, 999, 1, 13, 12, 13, false},
        {'r', 9, 7, -9, 5, pos(5), pos(9)},
        {'r', 9, 7, -9, 6, pos(5) + 1, pos(9)},
        {'r', 9, 7, -9, 5, pos(5) - 4, pos(9)},
        {'r', 9, 9, -9, 0, 13, 12},
        {'r', 9, 9, -9, 5, 13, file_end, 0},
        {'r', 9, 9, -9, 5, 13, file_end, pos(5) - 4 - 12},
        {'r', 9, 9, 300, 5, 13, file_end, pos(5) - 4 - 12},
        {'r', 9, 9, -9, 5, 13, file_end, 0xFFFFFFFF},
        {'r', 9, 9, -9, 0, 13, file_end, pos(5) - 4 - 13},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        Bytes bytes = flv.bytes();
        const Bytes prev = be(static_cast<uint64_t>(c.prev_size), 4);
        std::copy(prev.begin(), prev.end(), &bytes[static_cast<size_t>(pos(5)) - 4]);
        Crawl t(bytes, c.type);
        t.s.sh.data_start = c.pos_min;
        t.s.sh.data_len = c.pos_max - c.pos_min;
        LogCapture log;
        ASSERT_EQ(t.set_up(c.by, tag(c.start), c.target_ms), 0);
        EXPECT_EQ(t.drive(), c.found ? 2 : 1);
        EXPECT_EQ(t.c.setpos(&t.c), c.found ? 0 : -1);
        EXPECT_EQ(c.found ? t.file.tell() : t.c.cur.pos, pos(c.answer));
        if (c.found) {
            EXPECT_EQ(t.c.result, tag(c.answer).timestamp);
        }
        EXPECT_TRUE(log.is(logged(c.found ? "" : "C")));
    }
}

} // namespace
