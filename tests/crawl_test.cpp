// SPDX-License-Identifier: Apache-2.0
#include "tests/support/demux.h"
#include "tests/support/seek.h"
#include "zoflv/dmx/zoflvd_crawl.h"

#include <optional>

namespace {

using Lines = LogCapture::Lines;

const char* const FAILED = "E zoflvd_crawl: #*";
//                    0   1   2   3   4    5    6    7    8    9   10
const char* const MIXED = "S0 K40 A40 P80 A80 K120 A120 P160 A160 K200 A200";

enum By { Seek, Reverse, ReverseForw, Keyfrm };

ZOFLVD_TAG tag_at(const FlvBuilder& flv, int i, uint32_t kf = 0)
{
    const FlvBuilder::Tag& t = flv.tags()[static_cast<size_t>(i)];
    return {t.type, static_cast<uint32_t>(t.size), t.time_ms * ZOFLV_TICKS_PER_MS,
            0,      static_cast<int64_t>(t.pos),   kf,
            0};
}

int set_up(ZOFLVD_CRAWL& c, By by, const ZOFLVD_TAG& start, int64_t target_ms, ZOFLVDS& s, int mode)
{
    const int64_t target = target_ms * ZOFLV_TICKS_PER_MS;
    switch (by) {
    case Seek:
        return zoflvd_crawl_init_seek(&c, &start, &target, &s, mode);
    case Reverse:
        return zoflvd_crawl_init_reverse(&c, &start, &target, &s);
    case ReverseForw:
        return zoflvd_crawl_init_reverse_forw(&c, &start, &target, &s);
    default:
        return zoflvd_crawl_init_keyfrm(&c, &start, &s, mode);
    }
}

int drive(ZOFLVD_CRAWL& c)
{
    for (;;) {
        if (const int rc = c.next(&c); rc < 0)
            return rc;
        if (const int rc = c.check(&c); rc != 0)
            return rc;
    }
}

/// Drives to the tag `answer`, or to the end without an answer for a negative one.
void expect_answer(ZOFLVD_CRAWL& c, const FlvBuilder& flv, const MemFile& file, int answer)
{
    LogCapture log;
    EXPECT_EQ(drive(c), answer < 0 ? 1 : 2);
    EXPECT_EQ(c.setpos(&c), answer < 0 ? -1 : 0);
    EXPECT_TRUE(log.is(answer < 0 ? Lines{FAILED} : Lines{}));
    if (answer < 0)
        return;
    EXPECT_EQ(c.result, tag_at(flv, answer).timestamp);
    EXPECT_EQ(file.tell(), tag_at(flv, answer).pos);
}

TEST(Crawl, Answers)
{
    const FlvBuilder flv = short_file(MIXED);
    const struct {
        const char* name;
        By by;
        int mode;
        uint8_t type;
        int start;
        uint32_t start_kf;
        int64_t target_ms;
        int at_once, answer; // the test before the first step; the tag, -1: none
    } cases[] = {
        {"audio forward", Seek, 0, 8, 2, 0, 130, 0, 6},
        {"audio forward, equal", Seek, 1, 8, 2, 0, 120, 0, 4},
        {"audio forward, the start tag of another type", Seek, 0, 8, 0, 0, 10, 0, 0},
        {"audio forward, the start tag", Seek, 0, 8, 2, 0, 41, 0, 2},
        {"audio forward, none", Seek, 0, 8, 8, 0, 201, 0, -1},
        {"audio backward", Seek, 1, 8, 8, 0, 119, 0, 4},
        {"equal times go backward", Seek, 0, 8, 6, 0, 120, 2, 4},
        {"audio backward, to the start", Seek, 0, 8, 4, 0, -1, 0, 0},
        {"next forward", Seek, 1, 9, 1, 0, 90, 0, 5},
        {"next forward, equal", Seek, 1, 9, 1, 1, 120, 0, 5},
        {"next forward, none", Seek, 1, 9, 1, 1, 201, 0, -1},
        {"next backward", Seek, 1, 9, 10, 0, 100, 0, 5},
        {"next backward, equal", Seek, 1, 9, 10, 0, 120, 0, 9},
        {"next backward, passed too late", Seek, 1, 9, 7, 0, 130, 0, 5},
        {"next backward, to the start", Seek, 1, 9, 3, 0, -1, 0, 1},
        {"next backward, none passed", Seek, 1, 9, 1, 0, -1, 0, 1},
        {"previous forward", Seek, 0, 9, 1, 0, 170, 0, 5},
        {"previous forward, equal", Seek, 2, 9, 1, 1, 120, 0, 1},
        {"previous forward, the start tag", Seek, 0, 9, 1, 1, 70, 0, 1},
        {"previous forward, the start tag not known as a keyframe", Seek, 0, 9, 1, 0, 70, 0, 5},
        {"previous forward, none", Seek, 3, 9, 1, 1, 201, 0, -1},
        {"previous backward", Seek, 0, 9, 9, 0, 199, 0, 5},
        {"previous backward, equal", Seek, 2, 9, 9, 0, 120, 0, 5},
        {"previous backward, at once", Seek, 0, 9, 9, 1, 200, 2, 5},
        {"previous backward, to the start", Seek, 0, 9, 9, 1, 39, 0, 0},
        {"reverse", Reverse, 0, 9, 9, 0, 119, 0, 1},
        {"reverse, from before the time", Reverse, 0, 9, 1, 0, 500, 0, 0},
        {"reverse, audio", Reverse, 0, 8, 8, 0, 500, 2, 6},
        {"reverse forward", ReverseForw, 0, 9, 3, 0, 60, 0, 5},
        {"reverse forward, from behind the time", ReverseForw, 0, 9, 5, 0, -1, 0, 9},
        {"reverse forward, audio", ReverseForw, 0, 8, 2, 0, 90, 0, 4},
        {"next keyframe", Keyfrm, 1, 9, 1, 0, 0, 0, 5},
        {"next keyframe, none", Keyfrm, 1, 9, 9, 1, 0, 2, -1},
        {"keyframe before", Keyfrm, 2, 9, 9, 0, 0, 0, 5},
        {"keyframe before, none", Keyfrm, 0, 9, 1, 0, 0, 0, -1},
        {"next audio tag", Keyfrm, 1, 8, 5, 1, 0, 0, 6},
        {"audio tag before", Keyfrm, -1, 8, 6, 0, 0, 0, 4},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        BareStrm t(flv.bytes(), c.type);
        ZOFLVD_CRAWL crawl;
        std::memset(static_cast<void*>(&crawl), 0xEE, sizeof crawl);
        const ZOFLVD_TAG start = tag_at(flv, c.start, c.start_kf);
        ASSERT_EQ(set_up(crawl, c.by, start, c.target_ms, t.s, c.mode), 0);
        EXPECT_EQ(crawl.at_end | crawl.has_saved, 0);
        EXPECT_EQ(crawl.saved.pos, c.by == Keyfrm ? 0 : start.pos);
        EXPECT_EQ(t.file.calls(), 0);
        EXPECT_EQ(crawl.check(&crawl), c.at_once);
        expect_answer(crawl, flv, t.file, c.answer);
    }
}

TEST(Crawl, EndsOfTheData)
{
    const FlvBuilder flv = short_file(MIXED);
    const auto pos = [&](int i) { return tag_at(flv, i).pos; };
    const struct {
        const char* name;
        bool forward;
        int start;
        int64_t pos_min, pos_max;
        std::optional<uint32_t> prev; // the field in front of tag 5
        int last;                     // the tag that cannot be left
    } cases[] = {
        {"forward, up to the limit", true, 7, 13, pos(9), {}, 8},
        {"forward, 1 behind it", true, 7, 13, pos(9) + 1, {}, 9},
        {"forward, no test of the lower limit", true, 1, pos(5), pos(9), {}, 8},
        {"forward, fewer than no data", true, 1, 13, 12, {}, 1},
        {"backward, up to the limit", false, 7, pos(5), pos(9), {}, 5},
        {"backward, 1 before it", false, 7, pos(5) + 1, pos(9), {}, 6},
        {"backward, the field before it", false, 7, pos(5) - 4, pos(9), {}, 5},
        {"backward, no test of the upper limit", false, 9, 13, 12, {}, 0},
        {"size of 0", false, 9, 13, pos(9), 0, 5},
        {"size too large by 1", false, 9, 13, pos(9), pos(5) - 4 - 12, 5},
        {"size that wraps", false, 9, 13, pos(9), 0xFFFFFFFF, 5},
        {"size to the first tag", false, 9, 13, pos(9), pos(5) - 4 - 13, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Bytes bytes = flv.bytes();
        const Bytes prev = be(c.prev.value_or(13), 4);
        std::copy(prev.begin(), prev.end(), bytes.begin() + pos(5) - 4);
        BareStrm t(bytes);
        t.s.sh.data_start = c.pos_min;
        t.s.sh.data_len = c.pos_max - c.pos_min;
        ZOFLVD_CRAWL crawl;
        set_up(crawl, c.forward ? ReverseForw : Reverse, tag_at(flv, c.start),
               c.forward ? 9999 : -9999, t.s, 0);
        EXPECT_EQ(drive(crawl), c.forward ? 1 : 2);
        EXPECT_TRUE(crawl.at_end == 1 && crawl.next(&crawl) == 1);
        EXPECT_EQ(crawl.cur.pos, pos(c.last));
    }
}

TEST(Crawl, LastTag)
{
    const FlvBuilder flv = short_file(MIXED);
    const struct {
        int start;
        uint32_t found;
        int64_t pos_max;
        int answer; // -1: none, and no log line
    } cases[] = {
        {0, 0, static_cast<int64_t>(flv.size()), 10}, // of another type than the start
        {9, 0, static_cast<int64_t>(flv.size()), 10},
        {10, 1, static_cast<int64_t>(flv.size()), 10},
        {10, 0, static_cast<int64_t>(flv.size()), -1},
        {0, 0, tag_at(flv, 7).pos, 6},
        {8, 1, 0, 8},
    };
    for (const auto& c : cases) {
        MemFile file(flv.bytes());
        ZOFLVD_TAG start = tag_at(flv, c.start);
        start.found = c.found;
        const int64_t pos_min = 13;
        ZOFLVD_CRAWL crawl;
        LogCapture log;
        EXPECT_EQ(zoflvd_crawl_init_find_duration(&crawl, file.mfal(), file.fh(), &start, &pos_min,
                                                  &c.pos_max),
                  0);
        EXPECT_TRUE(crawl.strm_type == start.type && drive(crawl) == 2);
        EXPECT_EQ(crawl.setpos(&crawl), c.answer < 0 ? -1 : 0);
        EXPECT_TRUE(log.is({}));
        if (c.answer >= 0) {
            EXPECT_TRUE(crawl.result == tag_at(flv, c.answer).timestamp &&
                        file.tell() == tag_at(flv, c.answer).pos);
        }
    }
}

TEST(Crawl, Failures)
{
    const FlvBuilder flv = short_file(MIXED);
    const Lines no_pos = {"E zoflvd: ZOFLV_ERR_FILEIO.", FAILED};
    Lines cut_short = lines("cut");
    cut_short.push_back(FAILED);
    const struct {
        const char* name;
        char way; // f forward, b backward, any, s the position at the end
        MemFile::Kind fault;
        int nth, read_result;
        Lines log;
    } cases[] = {
        {"position", 'f', MemFile::SetPos, 0, 0, {FAILED}},
        {"header's position", 'f', MemFile::GetPos, 0, 0, no_pos},
        {"header", 'f', MemFile::Read, 0, 10, cut_short},
        {"first byte of the body", 'f', MemFile::Read, 1, 0, {FAILED}},
        {"size's position", 'b', MemFile::SetPos, 0, 0, {}},
        {"size", 'b', MemFile::Read, 0, 3, {}},
        {"size, refused", 'b', MemFile::Read, 0, -1, {}},
        {"position", 'b', MemFile::SetPos, 1, 0, {FAILED}},
        {"header's position", 'b', MemFile::GetPos, 0, 0, no_pos},
        {"header", 'b', MemFile::Read, 1, 10, cut_short},
        {"first byte of the body", 'b', MemFile::Read, 2, -1, {FAILED}},
        {"position", 'a', MemFile::SetPos, 0, 0, {FAILED}},
        {"header", 'a', MemFile::Read, 0, 10, cut_short},
        {"answer's position", 's', MemFile::SetPos, 0, 0, {FAILED}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(1, c.way) + ", " + c.name);
        BareStrm t(flv.bytes());
        ZOFLVD_CRAWL crawl;
        ZOFLVD_TAG start = tag_at(flv, 4);
        start.found = 1;
        const int64_t limits[] = {13, c.way == 's' ? 0 : t.s.sh.file_size};
        if (c.way == 'a' || c.way == 's')
            zoflvd_crawl_init_find_duration(&crawl, t.file.mfal(), t.s.fh, &start, &limits[0],
                                            &limits[1]);
        else
            set_up(crawl, Keyfrm, start, 0, t.s, c.way == 'f' ? 1 : 0);
        LogCapture log;
        t.file.fail(c.fault, c.nth, false, c.read_result);
        const bool at_setpos = c.way == 's' && drive(crawl) == 2;
        EXPECT_EQ(at_setpos ? crawl.setpos(&crawl) : crawl.next(&crawl), -1);
        EXPECT_TRUE(log.is(c.log));
    }
    BareStrm t(flv.bytes(), 18);
    ZOFLVD_CRAWL crawl;
    LogCapture log;
    for (const By by : {Seek, Reverse, ReverseForw}) {
        EXPECT_EQ(set_up(crawl, by, tag_at(flv, 4), 100, t.s, 0), -1);
        EXPECT_TRUE(log.is({FAILED}));
    }
    EXPECT_EQ(set_up(crawl, Keyfrm, tag_at(flv, 4), 0, t.s, 0), 0);
    t.s.sh.strm_type = 9; // both ways of positioning test the answer themselves
    for (const int mode : {0, 1}) {
        set_up(crawl, Seek, tag_at(flv, 1), 100, t.s, mode);
        EXPECT_EQ(crawl.setpos(&crawl), -1);
        EXPECT_TRUE(log.is({FAILED}));
        EXPECT_EQ(drive(crawl), 2);
        t.file.reset().fail(MemFile::SetPos, 0);
        EXPECT_EQ(crawl.setpos(&crawl), -1);
        EXPECT_TRUE(log.is({FAILED}));
        t.file.reset();
    }
}

} // namespace
