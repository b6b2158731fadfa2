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

    /// s seek, r reverse, f reverse forward, k keyframe, d duration
    int set_up(char by, const ZOFLVD_TAG& start, int64_t target_ms, int mode)
    {
        const int64_t target = target_ms * MS;
        const int64_t end = s.sh.data_start + s.sh.data_len;
        std::fill_n(reinterpret_cast<uint8_t*>(&c), sizeof c, uint8_t{0xEE});
        const ZOFLVD_CRAWL_RANGE range = {&s.mfal, s.fh, s.sh.strm_type, s.sh.data_start, end};
        return by == 's'   ? zoflvd_crawl_init_seek(&c, &start, &target, &range, mode)
               : by == 'r' ? zoflvd_crawl_init_reverse(&c, &start, &target, &range)
               : by == 'f' ? zoflvd_crawl_init_reverse_forw(&c, &start, &target, &range)
               : by == 'k' ? zoflvd_crawl_init_keyfrm(&c, &start, &range, mode)
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

enum { found = 0, at_once = 1, none = 2 };

TEST(Crawl, Answers)
{
    const struct {
        char by;
        uint8_t type;
        int mode, start, target_ms, answer; // the start negative: its flags are set
        int how = found; // at_once: so is the start; none: the crawler stays there
        int64_t pos_min = 13, pos_max = file_end;
        int64_t prev_size = 13; // the field in front of tag 5
    } cases[] = {
        {'s', 8, 0, 2, 130, 6},
        {'s', 8, 1, 2, 120, 4},
        {'s', 8, 0, 0, 10, 0},
        {'s', 8, 0, 2, 41, 2},
        {'s', 8, 0, 8, 201, 10, none},
        {'s', 8, 1, 8, 119, 4},
        {'s', 8, 0, 6, 120, 4, at_once},
        {'s', 8, 0, 4, -1, 0},
        {'s', 9, 1, 1, 90, 5},
        {'s', 9, 1, -1, 120, 5},
        {'s', 9, 1, -1, 201, 10, none},
        {'s', 9, 1, 10, 100, 5},
        {'s', 9, 1, 10, 120, 9},
        {'s', 9, 1, 7, 130, 5},
        {'s', 9, 1, 3, -1, 1},
        {'s', 9, 1, 1, -1, 1},
        {'s', 9, 0, 1, 170, 5},
        {'s', 9, 2, -1, 120, 1},
        {'s', 9, 0, -1, 70, 1},
        {'s', 9, 0, 1, 70, 5},
        {'s', 9, 3, -1, 201, 10, none},
        {'s', 9, 0, 9, 199, 5},
        {'s', 9, 2, 9, 120, 5},
        {'s', 9, 0, -9, 200, 5, at_once},
        {'s', 9, 0, -9, 39, 0},
        {'s', 9, 1, -9, 200, 9},
        {'r', 9, 0, 9, 119, 1},
        {'r', 9, 0, 1, 500, 0},
        {'r', 8, 0, 8, 500, 6, at_once},
        {'f', 9, 0, 3, 60, 5},
        {'f', 9, 0, 5, -1, 9},
        {'f', 8, 0, 2, 90, 4},
        {'k', 9, 1, 1, 0, 5},
        {'k', 9, 1, -9, 0, 10, none | at_once},
        {'k', 9, 2, 9, 0, 5},
        {'k', 9, 0, 1, 0, 0, none},
        {'k', 8, 1, -5, 0, 6},
        {'k', 8, -1, 6, 0, 4},
        {'d', 8, 0, 0, 0, 10},
        {'d', 8, 0, 9, 0, 10},
        {'d', 8, 0, -10, 0, 10},
        // Bounds and PreviousTagSize.
        {'d', 8, 0, 0, 0, 6, found, 13, pos(7)},
        {'d', 8, 0, -8, 0, 8, found, 13, pos(7)},
        {'f', 9, 0, 7, 999, 8, none, 13, pos(9)},
        {'f', 9, 0, 7, 999, 9, none, 13, pos(9) + 1},
        {'f', 9, 0, 1, 999, 8, none, pos(5), pos(9)},
        {'f', 9, 0, 1, 999, 1, none, 13, 12},
        {'r', 9, 0, 7, -9, 5, found, pos(5), pos(9)},
        {'r', 9, 0, 7, -9, 6, found, pos(5) + 1, pos(9)},
        {'r', 9, 0, 7, -9, 5, found, pos(5) - 4, pos(9)},
        {'r', 9, 0, 9, -9, 0, found, 13, 12},
        {'r', 9, 0, 9, -9, 5, found, 13, file_end, 0},
        {'r', 9, 0, 9, -9, 5, found, 13, file_end, pos(5) - 4 - 12},
        {'r', 9, 0, 9, 300, 5, found, 13, file_end, pos(5) - 4 - 12},
        {'r', 9, 0, 9, -9, 5, found, 13, file_end, 0xFFFFFFFF},
        {'r', 9, 0, 9, -9, 0, found, 13, file_end, pos(5) - 4 - 13},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE("row " + std::to_string(&c - cases));
        Bytes bytes = flv.bytes();
        const Bytes prev = be(static_cast<uint64_t>(c.prev_size), 4);
        std::copy(prev.begin(), prev.end(), &bytes[static_cast<size_t>(pos(5)) - 4]);
        Crawl t(bytes, c.type);
        t.s.sh.data_start = c.pos_min;
        t.s.sh.data_len = c.pos_max - c.pos_min;
        LogCapture log;
        ASSERT_EQ(t.set_up(c.by, tag(c.start), c.target_ms, c.mode), 0);
        EXPECT_EQ(t.file.calls(), 0);
        EXPECT_EQ(t.c.check(&t.c), c.how & at_once ? 2 : 0);
        EXPECT_EQ(t.drive(), c.how & none ? 1 : 2);
        EXPECT_EQ(t.c.setpos(&t.c), c.how & none ? -1 : 0);
        EXPECT_EQ(c.how & none ? t.c.cur.pos : t.file.tell(), pos(c.answer));
        if (!(c.how & none)) {
            EXPECT_EQ(t.c.result, tag(c.answer).timestamp);
        }
        EXPECT_TRUE(log.is(logged(c.how & none ? "C" : "")));
    }
}

TEST(Crawl, Failures)
{
    LogCapture log;
    const auto fails = [&log](char by, int mode, MemFile::Kind fault, int nth, int result,
                              const char* expected) {
        SCOPED_TRACE(::testing::Message() << by << mode << ", " << fault << " " << nth);
        Crawl t(flv.bytes());
        t.set_up(by, tag(4), 0, mode);
        t.file.fail(fault, nth, false, result);
        EXPECT_EQ(t.c.next(&t.c), -1);
        EXPECT_TRUE(log.is(logged(expected)));
    };
    fails('k', 1, MemFile::SetPos, 0, 0, "C");
    fails('k', 1, MemFile::GetPos, 0, 0, "ZOFLV_ERR_FILEIO.|C");
    fails('k', 1, MemFile::Read, 0, 10, "cut|C");
    fails('k', 1, MemFile::Read, 1, 0, "C"); // the first byte of the body
    fails('k', 0, MemFile::SetPos, 0, 0, "");
    fails('k', 0, MemFile::Read, 0, 3, "");
    fails('k', 0, MemFile::SetPos, 1, 0, "C");
    fails('k', 0, MemFile::Read, 1, 10, "cut|C");
    fails('k', 0, MemFile::Read, 2, -1, "C");
    fails('d', 0, MemFile::SetPos, 0, 0, "C");
    fails('d', 0, MemFile::Read, 0, 10, "cut|C");

    Crawl t(flv.bytes(), 18);
    for (const char by : {'s', 'r', 'f', 'k'})
        EXPECT_EQ(t.set_up(by, tag(4), 0, 1), by == 'k' ? 0 : -1);
    EXPECT_TRUE(log.is(logged("C|C|C")));
    t.set_up('d', tag(10), 0, 0);
    EXPECT_EQ(t.drive(), 2);
    EXPECT_EQ(t.c.setpos(&t.c), -1); // knows no tag
    EXPECT_TRUE(log.is({}));
    t.s.sh.strm_type = 9;
    for (const int mode : {0, 1, 2}) { // each way of positioning, before and at an answer
        t.set_up(mode == 2 ? 'd' : 's', tag(-1), 100, mode);
        EXPECT_EQ(t.c.setpos(&t.c), mode == 2 ? 0 : -1);
        EXPECT_EQ(t.drive(), 2);
        t.file.reset().fail(MemFile::SetPos, 0);
        EXPECT_EQ(t.c.setpos(&t.c), -1);
        EXPECT_TRUE(log.is(logged(mode == 2 ? "C" : "C|C")));
        t.file.reset();
    }
}

} // namespace
