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
        return by == 's'   ? zoflvd_crawl_init_seek(&c, &start, &target, &s, mode)
               : by == 'r' ? zoflvd_crawl_init_reverse(&c, &start, &target, &s)
               : by == 'f' ? zoflvd_crawl_init_reverse_forw(&c, &start, &target, &s)
               : by == 'k' ? zoflvd_crawl_init_keyfrm(&c, &start, &s, mode)
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

TEST(Crawl, Answers)
{
    // Words: mode:start@target=answer, the target in ms; a minus in front of the start: its flags are
    // set; ?: there is none and the crawler stays there; !: the start would be an answer.
    const struct {
        char by;
        uint8_t type;
        const char* words;
        int64_t pos_min = 13, pos_max = file_end;
        int64_t prev_size = 13; // the field in front of tag 5
    } cases[] = {
        {'s', 8, "0:2@130=6 1:2@120=4 0:0@10=0 0:2@41=2 0:8@201=10?"},
        {'s', 8, "1:8@119=4 0:6@120=4! 0:4@-1=0"},
        {'s', 9, "1:1@90=5 1:-1@120=5 1:-1@201=10?"},
        {'s', 9, "1:10@100=5 1:10@120=9 1:7@130=5 1:3@-1=1 1:1@-1=1"},
        {'s', 9, "0:1@170=5 2:-1@120=1 0:-1@70=1 0:1@70=5 3:-1@201=10?"},
        {'s', 9, "0:9@199=5 2:9@120=5 0:-9@200=5! 0:-9@39=0 1:-9@200=9"},
        {'r', 9, "0:9@119=1 0:1@500=0"},
        {'r', 8, "0:8@500=6!"},
        {'f', 9, "0:3@60=5 0:5@-1=9"},
        {'f', 8, "0:2@90=4"},
        {'k', 9, "1:1@0=5 1:-9@0=10?! 2:9@0=5 0:1@0=0?"},
        {'k', 8, "1:-5@0=6 -1:6@0=4"},
        {'d', 8, "0:0@0=10 0:9@0=10 0:-10@0=10"},
        {'d', 8, "0:0@0=6 0:-8@0=8", 13, pos(7)},
        {'f', 9, "0:7@999=8?", 13, pos(9)},
        {'f', 9, "0:7@999=9?", 13, pos(9) + 1},
        {'f', 9, "0:1@999=8?", pos(5), pos(9)},
        {'f', 9, "0:1@999=1?", 13, 12},
        {'r', 9, "0:7@-9=5", pos(5), pos(9)},
        {'r', 9, "0:7@-9=6", pos(5) + 1, pos(9)},
        {'r', 9, "0:7@-9=5", pos(5) - 4, pos(9)},
        {'r', 9, "0:9@-9=0", 13, 12},
        {'r', 9, "0:9@-9=5", 13, file_end, 0},
        {'r', 9, "0:9@-9=5 0:9@300=5", 13, file_end, pos(5) - 4 - 12},
        {'r', 9, "0:9@-9=5", 13, file_end, 0xFFFFFFFF},
        {'r', 9, "0:9@-9=0", 13, file_end, pos(5) - 4 - 13},
    };
    for (const auto& c : cases) {
        std::istringstream in(c.words);
        for (std::string word; in >> word;) {
            SCOPED_TRACE(std::string(1, c.by) + " " + word);
            std::istringstream numbers(word);
            int mode, start, target, answer;
            char sign;
            numbers >> mode >> sign >> start >> sign >> target >> sign >> answer;
            const bool none = word.find('?') != std::string::npos;
            Bytes bytes = flv.bytes();
            const Bytes prev = be(static_cast<uint64_t>(c.prev_size), 4);
            std::copy(prev.begin(), prev.end(), &bytes[static_cast<size_t>(pos(5)) - 4]);
            Crawl t(bytes, c.type);
            t.s.sh.data_start = c.pos_min;
            t.s.sh.data_len = c.pos_max - c.pos_min;
            LogCapture log;
            ASSERT_EQ(t.set_up(c.by, tag(start), target, mode), 0);
            EXPECT_EQ(t.c.saved.pos, c.by == 'k' || c.by == 'd' ? 0 : tag(start).pos);
            EXPECT_EQ(t.c.at_end + t.c.has_saved + t.file.calls(), 0);
            EXPECT_EQ(t.c.check(&t.c), word.back() == '!' ? 2 : 0);
            EXPECT_EQ(t.drive(), none ? 1 : 2);
            EXPECT_EQ(t.c.setpos(&t.c), none ? -1 : 0);
            EXPECT_EQ(none ? t.c.cur.pos : t.file.tell(), pos(answer));
            EXPECT_TRUE(none || t.c.result == tag(answer).timestamp);
            EXPECT_TRUE(log.is(logged(none ? "C" : "")));
        }
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
    EXPECT_TRUE(t.drive() == 2 && t.c.setpos(&t.c) == -1 && log.is({})); // knows no tag
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
