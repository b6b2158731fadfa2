// SPDX-License-Identifier: Apache-2.0
#include "tests/support/seek.h"

#include <random>

namespace {

struct Case {
    const char *file, *words;
    std::string log = "";
    int64_t duration = 0; // ms; 0: no seek without an index succeeds
    uint8_t type = 9;
    size_t cut = 0; // bytes cut off the file
};

/// Words: a seek mode@ms, or a mode for one without a time, r a read or q a length query, and after
/// = the number of the tag landed on or read, the result as r-3, or z for a 1 without a file call.
/// In front of a seek f and what fails: S setpos, G getpos, R read, by number.
void run(const Case& c)
{
    SCOPED_TRACE(c.file);
    std::vector<ZOFLVD_KF> index;
    const FlvBuilder flv = short_file(c.file, &index);
    BareStrm t(cut(flv.bytes(), flv.size() - c.cut), c.type, c.duration * MS, index);
    LogCapture log;
    std::istringstream in(c.words);
    for (std::string word; in >> word; t.file.reset()) {
        SCOPED_TRACE(word + ", up to " + std::to_string(in.tellg()));
        if (word[0] == 'f') {
            t.file.fail(word[1] == 'S'   ? MemFile::SetPos
                        : word[1] == 'G' ? MemFile::GetPos
                                         : MemFile::Read,
                        std::stoi(word.substr(2)));
            in >> word;
        }
        const size_t at = word.find('@') + 1;
        const std::string to = word.substr(word.find('=') + 1);
        const bool ok = std::isdigit(to[0]);
        const int mode = word[0] - '0';
        const int rc = mode > 9 ? t.read(word[0] == 'q')
                       : at > 0 ? t.seek(std::llround(std::stod(word.substr(at)) * MS), mode)
                                : t.seek(mode);
        ASSERT_EQ(rc, ok ? 0 : to == "z" ? 1 : std::stoi(to.substr(1)));
        EXPECT_TRUE(to != "z" || t.file.calls() == 0);
        if (ok) {
            const FlvBuilder::Tag& tag = flv.tags()[std::stoul(to)];
            EXPECT_EQ(mode > 9 ? t.time : t.out, tag.time_ms * MS);
            EXPECT_TRUE(mode > 9 || t.file.tell() == static_cast<int64_t>(tag.pos));
        }
        if (mode <= 3) {
            EXPECT_EQ(values(t.s.cur_tag.found, t.s.next_tag.found, t.s.fetch_tag),
                      values(0, 0, 1));
        }
        if (rc != 0 && at > 0 &&
            c.type == 9) { // the stream goes on from another seek; a tag is known then
            t.file.reset();
            EXPECT_EQ(t.seek(0, 0), 0);
            EXPECT_EQ(t.read(), 0);
            EXPECT_EQ(t.time, 0);
        }
    }
    EXPECT_TRUE(log.is(logged(c.log)));
}

TEST(Seek, Words)
{
    const char* const sound = "K0*0 S0 A1000 P2500 K2000*0 A2000 P4000 K4000*0 A4000";
    const char* const lone = "K0*0 P40:3000 K2000:50*-5 P2040 P2080";
    const char* const dense = "K0:900*0 P40:900 K2000:50*-5 P2040 P2080";
    const char* const plain = "K0 A0 P40 K80 A80 P120 K160 P200 A200";
    const std::string lost = "#*|zoflvds_validate_keytag() failed";
    const std::string search =
        "#*|frm search: 0 bytes checked|zoflvds_seek_bytestream_tag() failed|#*";
    const std::string bad_mode = "zoflvds_seek(): invalid mode arg|",
                      none = "zoflvd_mblk_elem_find() failed";
    const Case cases[] = {
        // Through the index.
        {sound, "0@3000=4 1@3000=7 2@3000=4 3@3100=7 3@3000=4 3@3000.0001=7 0@2000=4 1@2000=7 "
                "3@2000=4 0@1999.9999=0 1@0.0001=4 3@999=0 3@1001=4 0@4000=4 1@4000=7 3@4000=7 "
                "0@4000.0001=7 1@4000.0001=r1 3@99999=7 1@99999=r1 0@0=0 1@0=0 3@0=0"},
        {sound, "0@3000=4 1@3000=7", "", 0, 8}, // an audio stream too lands on the video tag
        {sound, "0@-0.0001=r-3 1@-1=r-3", none + "|" + none},
        {"K0*0 P40", "fS0 0@0=r-6 fS0 0@1=r-3 fR0 0@1=r-3 fS1 0@1=r-3",
         "#*|fsetpos() failed|" + lost + "|" + lost},
        // Entries that miss their tag.
        {lone, "0@2040=2 1@40=2"},
        {"K0*0 P40:3000 K2000:50*-5,-10000 P2040 P2080", "1@40=2"},
        {"K0*0 P40:3000 K2000:50*-5,-10001 P2040 P2080", "1@40=r-3", lost},
        {"K0*0 P40:3000 K2000:50*-5,10000 P2040 P2080", "0@2040=2"},
        {"K0*0 P40:3000 K2000:50*-5,10001 P2040 P2080", "0@2040=r-3", lost},
        {"K0*0 P40:3000 K2000:50*-5,-10000 P2040 P2080", "0@1999.5=r-3", lost}, // after the time
        {dense, "0@2040=r-3", lost}, // other tags come first
        {dense, "0@2040=2 1@39=0", "", 4000},
        {"K0:40*1 K2000:40 P2040 P2080", "0@1=0"},                     // near the start
        {"K0*0 P40:3000 A2000:1139 K2000*-5 P2040 P2080", "0@2040=3"}, // the tenth round
        {"K0*0 P40:3000 A2000:1138 K2000*-5 P2040 P2080", "0@2040=r-3", lost},
        {"K0*0 P40:3000 P2000:1139 K2000*-5 P2040 P2080", "0@2040=3"},
        {"K0*0 P40:3000 K1999:1139 K2000*-5 P2040 P2080", "1@1999.5=3"},
        {"K0*0 P40:3000 A2000*-5 P2040 P2080", "0@2040=2", "", 0, 8},
        {"K0*0 P40:3000 K2000*-5 P2040 P2080", "0@2040=r-3", lost, 0, 8},
        {"K0*0 P40:2293 K2000:50*-2 P2040 P2080", "0@2040=2"}, // 09, but no StreamID 0
        {"K0*0 P40:3000 A2000*0", "0@2040=2"},                 // any audio or video tag will do
        {"K0*0 P40:3000 S2000*0 P2040", "0@2040=r-3", lost},
        {"K0*0 P40:3000 K2000*0", "0@2040=2", "", 0, 9, 6}, // 11 bytes there
        {"K0*0 P40:3000 K2000*0", "0@2040=r-3", lost, 0, 9, 7},
        {"K0*0 P40 K2000*17", "0@2040=r-3", lost, 9000}, // nothing there
        {"K0*0 P40 K2000*9223372036854775000", "0@2040=r-3", lost},
        // Without an index; before the first tag: that one.
        {plain, "0@-1=0 1@-1=0 2@-1e14=0 3@-9e14=0 1@170=r-3", "", 200},
        {plain, "0@201=r-3 fG0 0@100=r-3 fS0 0@100=r-3 fS2 0@100=r-3", "#*|#*|#*|#*", 200},
        {plain, "0@-1=r-3", "#*"},
        {plain, "fR0 0@100=r-3 fS1 0@100=r-3", search + "|" + search, 200},
        {plain, "fS3 0@100=r-3 fS8 0@100=r-3", "C|#*|C|#*", 200},
        {plain, "fG7 3@100=r-6 fS19 3@100=r-6 fS22 3@170=r-6", "#*|#*|#*", 200},
        {plain, "0@1=r-3", "C|#*", 200, 18},
        // Without a time.
        {plain,
         "1=z 2=z r=0 2=r1 1=3 1=3 r=3 2=0 r=0 1=3 r=3 q=5 1=6 r=6 1=r1 2=3 r=3 r=5 r=6 r=7 "
         "r=r1 1=z 2=6 r=6 r=7 r=r1 r=r1 1=z 2=6 r=6 1=r1 r=r1 1=z 2=z",
         "cut"},
        {plain, "1=z 2=z r=1 2=r1 1=4 r=4 1=8 r=8 1=r1 2=4 r=4 r=8 r=r1 1=z 2=4 r=4", "", 0, 8},
        {plain, "r=0 fS0 1=r1 fS3 1=r1 0@0=0 r=0 r=2 fS0 2=r1", "C|#*|C|#*|#*"},
        {plain, "0=r-1 3=r-1 4@1=r-1 9=r-1", bad_mode + bad_mode + "#*|#*"},
    };
    for (const Case& c : cases)
        run(c);
}

TEST(Seek, GoesOnAfterTheTagThatIsNotTheEntrys)
{
    // Each round finds the tag at 2000 ms, 5 bytes from the entry and more than 1 ms from its time;
    // no search without the index follows a time after the duration.
    std::vector<ZOFLVD_KF> index;
    const FlvBuilder flv = short_file("K0*0 P40:3000 K2000*-5,10001 P2040 P2080", &index);
    BareStrm t(flv.bytes(), 9, 2080 * MS, index);
    EXPECT_EQ(t.seek(2080 * MS + 1, 0), -3);
    EXPECT_EQ(t.read(), 0);
    EXPECT_EQ(t.time, 2040 * MS);
}

TEST(Seek, HandlesAndExtremes)
{
    const FlvBuilder flv = short_file("K0:40 P40 P80");
    const auto last = static_cast<int64_t>(flv.tags()[2].pos);
    BareStrm t(flv.bytes(), 9, SEC, {{INT64_MIN, 13}, {INT64_MAX, last}});
    t.s.sh.first_tag_pos = last; // time 0 does not ask the index
    EXPECT_EQ(t.seek(0, 1), 0);
    EXPECT_EQ(values(t.out, t.file.tell()), values(0, last));
    EXPECT_EQ(t.seek(1, 3), 0);
    EXPECT_EQ(t.out, INT64_MAX);
    EXPECT_EQ(t.seek(-2, 3), 0);
    EXPECT_EQ(t.out, INT64_MIN);
    const int64_t time = 1;
    EXPECT_EQ(zoflvds_seek(&t.s, &time, nullptr, 0), 0);
    // A file that takes a negative position for 0: the search still begins in it.
    BareStrm b(flv.bytes(), 9, SEC, {{1, INT64_MIN}});
    static const auto to_pos = b.s.mfal.setpos;
    b.s.mfal.setpos = [](void* fh, long long* pos) {
        return to_pos(fh, *pos < 0 ? &(*pos = 0) : pos);
    };
    EXPECT_EQ(b.seek(1, 0), 0);
    EXPECT_EQ(values(b.out, b.file.tell()), values(0, 13));
    LogCapture log;
    HeapFaults heap;
    heap.fail(0);
    EXPECT_EQ(zoflvds_seek_bytestream(&b.s, &time, nullptr, 0), -1);
    EXPECT_TRUE(log.is(lines("malloc failed!, [zoflv/dmx/zoflvd: *]")));
    b.s.magic = ZOFLVD_MAGIC;
    EXPECT_EQ(b.seek(0, 0), -1);
}

TEST(Seek, EstimatesAnOffset)
{
    const struct {
        int64_t time, duration, data_len, file_size, estimate;
    } cases[] = {
        {30 * SEC, 60 * SEC, 6000000, 6000013, 13 + 3000000 - 32768},
        {30 * SEC, 60 * SEC, 6000000, 1009, 908}, // 0.9 of the file
        {9999 + MS, 2 * MS, 100000, 100013, 13 + 50000 - 32768},
        {5000, 9999, 100000, 100013, 13 + 50005 - 32768},
        {INT64_MAX / 2, INT64_MAX, 6000000, 6000013, 13 + 3000000 - 32768},
        {INT64_MAX, INT64_MAX, INT64_MAX - 99, INT64_MAX, INT64_MAX - 99 + 13 - 32768},
        {SEC, 60 * SEC, -1000, 1013, 13},
        {INT64_MIN, INT64_MAX, 1000000, 1000013, 13},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.estimate);
        BareStrm t(short_file("K0:40 P40 P80").bytes(), 9, c.duration);
        t.s.sh.data_len = c.data_len;
        t.s.sh.file_size = c.file_size;
        t.file.fail(MemFile::Read, 0, true);
        EXPECT_EQ(t.seek(c.time, 0), -3);
        EXPECT_LE(std::abs(t.file.tell() - c.estimate), c.duration == INT64_MAX ? 64 : 0);
    }
}

TEST(Seek, TagSearchFailures)
{
    // First, a header whose PreviousTagSize lies outside the window.
    MemFile file(cat({hex("08 001000 00000000 000000"), Bytes(9000, 0x55)}));
    LogCapture log;
    const auto fails = [&](MemFile::Kind fault, int nth, int64_t start, const char* checked) {
        uint8_t buf[2048];
        ZOFLVD_TAG tag;
        void* fh = file.seek(start).reset().fail(fault, nth, false, 3).fh();
        EXPECT_EQ(zoflvds_seek_bytestream_tag(file.mfal(), fh, buf, start, 8000, &tag), -1);
        EXPECT_TRUE(log.is(lines(std::string("#*|frm search: ") + checked +
                                 " bytes checked|zoflvds_seek_bytestream_tag() failed")));
    };
    fails(MemFile::GetPos, 0, 0, "0");
    fails(MemFile::GetPos, 1, 0, "0");
    fails(MemFile::SetPos, 0, 0, "0");
    fails(MemFile::SetPos, 1, 0, "0");
    fails(MemFile::Read, 1, 0, "0");
    fails(MemFile::Read, 1, 9, "2038");
}

TEST(Seek, CrawlsOverSoManyTags)
{
    for (const int inter : {30719, 30720}) {
        FlvBuilder flv = short_file("K0 A0");
        for (int i = 0; i < inter; ++i)
            flv.tag(9, 5, {0x27});
        BareStrm t(flv.tag(8, 6, {0x2F}).tag(9, 6, {0x17}).tag(9, 7, {0x27}).bytes(), 9,
                   9999 * SEC);
        EXPECT_EQ(t.seek(MS, 1), inter == 30719 ? 0 : -3);
        EXPECT_EQ(t.out, inter == 30719 ? 6 * MS : -77);
    }
}

} // namespace
