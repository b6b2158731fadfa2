// SPDX-License-Identifier: Apache-2.0
#include "tests/support/demux.h"
#include "zoflv/dmx/zoflvd_tag.h"

namespace {

// At 0, 20, 35 and 53, the end at 69.
const Bytes four_tags =
    FlvBuilder().tag(18, 0, fill(5)).tag(8, 10, {}).tag(9, 20, fill(3)).tag(8, 30, {1}).bytes();

TEST(Tag, Header)
{
    LogCapture log;
    ZOFLVD_TAG tag{1, 1, 1, 1, 1, 1, 1};
    MemFile file(hex("AA 07 FFFEFD 000001 01 ABCDEF  09 000000 FFFFFF FF 000000  000102030405"));
    ASSERT_EQ(zoflvd_tag_read(file.mfal(), file.seek(1).fh(), &tag), 0);
    EXPECT_TRUE(tag.type == 7 && tag.data_size == 0xFFFEFD && tag.strm_id == 0xABCDEF);
    EXPECT_TRUE(tag.timestamp == 167772170000 && tag.pos == 1 && !tag.kf && !tag.found);
    ASSERT_EQ(zoflvd_tag_read(file.mfal(), file.fh(), &tag), 0);
    EXPECT_TRUE(tag.timestamp == 42949672950000 && tag.pos == 12 && file.tell() == 23);
    EXPECT_TRUE(log.is({}));
    EXPECT_EQ(zoflvd_tag_read(file.mfal(), file.fh(), &tag), 1);
    EXPECT_TRUE(log.is(lines("cut")));
    EXPECT_TRUE(!tag.type && !tag.data_size && !tag.timestamp && !tag.pos);
    EXPECT_EQ(zoflvd_tag_read(nullptr, file.fh(), &tag), -1);
    EXPECT_EQ(zoflvd_tag_read(file.mfal(), nullptr, &tag), -1);
    EXPECT_EQ(zoflvd_tag_read(file.mfal(), file.fh(), nullptr), -1);
    EXPECT_TRUE(log.is(LogCapture::Lines(3, "E zoflvd: ERR: invalid argument, exit.")));
}

TEST(Tag, NextStopsWhereItShould)
{
    constexpr MemFile::Kind none = MemFile::Any, get = MemFile::GetPos, set = MemFile::SetPos;
    const struct {
        int64_t start, end;
        int type, max;
        MemFile::Kind fault;
        int nth, rc;
        int64_t at; // of the file; -1: not told
        int reads;  // of headers alone
        const char* log;
    } cases[] = {
        {0, 69, 9, 0, none, -1, 0, 46, 3, ""},
        {0, 69, 9, -1, none, -1, 0, 46, 3, ""},
        {0, 69, 9, 3, none, -1, 0, 46, 3, ""},
        {0, 69, 9, 2, none, -1, -1, -1, 2, "tag of stream type 9 not found"},
        {0, 36, 9, 0, none, -1, 0, 46, 3, ""},
        {0, 35, 9, 0, none, -1, -1, 35, 2, ""},
        {35, 69, 18, 0, none, -1, -1, 69, 2, ""},
        {35, 69, 18, 0, set, 2, -1, -1, 2, ""},
        {69, 69, 9, 0, none, -1, -1, 5, 0, ""},
        {0, 0, 9, 0, none, -1, -1, 5, 0, "#2578"},
        {-9, -5, 9, 0, none, -1, -1, 5, 0, "#2578"},
        {0, 69, 9, 0, set, 0, -1, 5, 0, "#2595"},
        {0, 69, 9, 0, get, 1, -6, 69, 1, "ZOFLV_ERR_FILEIO."},
        {53, 99, 9, 0, none, -1, 1, 99, 2, "cut"},
        {53, 99, 9, 0, set, 2, -1, -1, 2, "cut|#2602"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        LogCapture log;
        MemFile file(four_tags);
        ZOFLVD_TAG tag{};
        file.seek(5).fail(c.fault, c.nth);
        EXPECT_EQ(zoflvd_tag_next(file.mfal(), file.fh(), &c.start, c.type, c.max, &c.end, &tag),
                  c.rc);
        EXPECT_EQ(tag.found, c.rc == 0 ? 1U : 0U);
        EXPECT_EQ(tag.found ? tag.pos : 35, 35);
        EXPECT_EQ(c.at < 0 ? c.at : file.tell(), c.at);
        EXPECT_EQ(file.calls(MemFile::Read), c.reads);
        EXPECT_TRUE(log.is(lines(c.log)));
    }
}

} // namespace
