// SPDX-License-Identifier: Apache-2.0
#include "tests/support/seek.h"
#include "zoflv/dmx/zoflvd_crawl.h"

namespace {

//                                0   1   2   3   4   5    6    7    8    9    10
const FlvBuilder flv = short_file("S0 K40 A40 P80 A80 K120 A120 P160 A160 K200 A200");
const auto file_end = static_cast<int64_t>(flv.size());

/// Tag `i`; `known`: with its flags set.
ZOFLVD_TAG tag(size_t i, bool known = false)
{
    const FlvBuilder::Tag& t = flv.tags()[i];
    return {t.type, static_cast<uint32_t>(t.size), t.time_ms * ZOFLV_TICKS_PER_MS,
            0,      static_cast<int64_t>(t.pos),   known,
            known};
}

int64_t pos(size_t i)
{
    return tag(i).pos;
}

struct Crawl : BareStrm {
    using BareStrm::BareStrm;

    /// s seek, r reverse, f reverse forward, k keyframe, d duration
    int set_up(char by, const ZOFLVD_TAG& start, int64_t target_ms, int mode)
    {
        const int64_t target = target_ms * ZOFLV_TICKS_PER_MS;
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
    // Words: mode:start@target=answer, the target in ms; k: the start tag's flags are set; the
    // answer with a minus: none, and the crawler stays there; !: the start would be an answer.
    const struct {
        char by;
        uint8_t type;
        const char* words;
        int64_t pos_min = 13, pos_max = file_end;
        int64_t prev_size = 13; // the field in front of tag 5
    } cases[] = {
        {'s', 8, "0:2@130=6 1:2@120=4 0:0@10=0 0:2@41=2 0:8@201=-10"},
        {'s', 8, "1:8@119=4 0:6@120=4! 0:4@-1=0"},
        {'s', 9, "1:1@90=5 1:1k@120=5 1:1k@201=-10"},
        {'s', 9, "1:10@100=5 1:10@120=9 1:7@130=5 1:3@-1=1 1:1@-1=1"},
        {'s', 9, "0:1@170=5 2:1k@120=1 0:1k@70=1 0:1@70=5 3:1k@201=-10"},
        {'s', 9, "0:9@199=5 2:9@120=5 0:9k@200=5! 0:9k@39=0"},
        {'r', 9, "0:9@119=1 0:1@500=0"},
        {'r', 8, "0:8@500=6!"},
        {'f', 9, "0:3@60=5 0:5@-1=9"},
        {'f', 8, "0:2@90=4"},
        {'k', 9, "1:1@0=5 1:9k@0=-10! 2:9@0=5 0:1@0=-0"},
        {'k', 8, "1:5k@0=6 -1:6@0=4"},
        {'d', 8, "0:0@0=10 0:9@0=10 0:10k@0=10"},
        {'d', 8, "0:0@0=6 0:8k@0=8", 13, pos(7)},
        {'f', 9, "0:7@999=-8", 13, pos(9)},
        {'f', 9, "0:7@999=-9", 13, pos(9) + 1},
        {'f', 9, "0:1@999=-8", pos(5), pos(9)},
        {'f', 9, "0:1@999=-1", 13, 12},
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
            Bytes bytes = flv.bytes();
            const Bytes prev = be(static_cast<uint64_t>(c.prev_size), 4);
            std::copy(prev.begin(), prev.end(), bytes.begin() + pos(5) - 4);
            Crawl t(bytes, c.type);
            t.s.sh.data_start = c.pos_min;
            t.s.sh.data_len = c.pos_max - c.pos_min;
            const char* from = std::strchr(word.c_str(), ':') + 1;
            const char* to = std::strchr(word.c_str(), '=') + 1;
            const ZOFLVD_TAG start = tag(std::stoul(from), std::strchr(from, 'k') != nullptr);
            const bool none = *to == '-';
            const ZOFLVD_TAG answer = tag(std::stoul(to + none));
            const int64_t target = std::stoll(std::strchr(from, '@') + 1);
            LogCapture log;
            ASSERT_EQ(t.set_up(c.by, start, target, std::stoi(word)), 0);
            EXPECT_EQ(t.c.saved.pos, std::strchr("kd", c.by) ? 0 : start.pos);
            EXPECT_EQ(t.c.at_end + t.c.has_saved + t.file.calls(), 0);
            EXPECT_EQ(t.c.check(&t.c), word.back() == '!' ? 2 : 0);
            EXPECT_EQ(t.drive(), none ? 1 : 2);
            EXPECT_EQ(t.c.setpos(&t.c), none ? -1 : 0);
            EXPECT_EQ(none ? t.c.cur.pos : t.file.tell(), answer.pos);
            EXPECT_EQ(none ? answer.timestamp : t.c.result, answer.timestamp);
            EXPECT_TRUE(log.is(logged(none ? "C" : "")));
        }
    }
}

TEST(Crawl, Failures)
{
    const struct {
        char by;
        int mode;
        MemFile::Kind fault;
        int nth, read_result;
        const char* log;
    } cases[] = {
        {'k', 1, MemFile::SetPos, 0, 0, "C"},
        {'k', 1, MemFile::GetPos, 0, 0, "ZOFLV_ERR_FILEIO.|C"},
        {'k', 1, MemFile::Read, 0, 10, "cut|C"},
        {'k', 1, MemFile::Read, 1, 0, "C"}, // the first byte of the body
        {'k', 0, MemFile::SetPos, 0, 0, ""},
        {'k', 0, MemFile::Read, 0, 3, ""},
        {'k', 0, MemFile::Read, 0, -1, ""},
        {'k', 0, MemFile::SetPos, 1, 0, "C"},
        {'k', 0, MemFile::Read, 1, 10, "cut|C"},
        {'k', 0, MemFile::Read, 2, -1, "C"},
        {'d', 0, MemFile::SetPos, 0, 0, "C"},
        {'d', 0, MemFile::Read, 0, 10, "cut|C"},
    };
    LogCapture log;
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.by << c.mode << ", " << c.fault << ", " << c.nth);
        Crawl t(flv.bytes());
        t.set_up(c.by, tag(4), 0, c.mode);
        t.file.fail(c.fault, c.nth, false, c.read_result);
        EXPECT_EQ(t.c.next(&t.c), -1);
        EXPECT_TRUE(log.is(logged(c.log)));
    }
    Crawl t(flv.bytes(), 18);
    EXPECT_EQ(t.set_up('s', tag(4), 0, 1), -1);
    EXPECT_EQ(t.set_up('r', tag(4), 0, 0), -1);
    EXPECT_EQ(t.set_up('f', tag(4), 0, 0), -1);
    EXPECT_TRUE(log.is(logged("C|C|C")));
    EXPECT_EQ(t.set_up('k', tag(4), 0, 0), 0);
    t.set_up('d', tag(10), 0, 0);
    EXPECT_TRUE(t.drive() == 2 && t.c.setpos(&t.c) == -1 && log.is({})); // knows no tag
    t.s.sh.strm_type = 9;
    for (const int mode : {0, 1, 2}) { // each way of positioning, before and at an answer
        t.set_up(mode == 2 ? 'd' : 's', tag(1, true), 100, mode);
        EXPECT_EQ(t.c.setpos(&t.c) != 0, mode != 2);
        EXPECT_EQ(t.drive(), 2);
        t.file.reset().fail(MemFile::SetPos, 0);
        EXPECT_EQ(t.c.setpos(&t.c), -1);
        EXPECT_TRUE(log.is(logged(mode == 2 ? "C" : "C|C")));
        t.file.reset();
    }
}

} // namespace
