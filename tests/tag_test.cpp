// SPDX-License-Identifier: Apache-2.0
#include "tests/support/demux.h"
#include "zoflv/dmx/zoflvd_tag.h"

namespace {

TEST(Tag, NextStopsWhereItShould)
{
    const struct {
        int64_t start, end;
        int max, rc;
        int64_t at; // of the file; -1: not told
        int reads;  // of headers alone
        const char* log;
        MemFile::Kind fault = MemFile::Any;
        int nth = -1;
    } cases[] = {
        {0, 69, 0, 0, 46, 3, ""},
        {0, 69, 3, 0, 46, 3, ""},
        {0, 69, 2, -1, -1, 2, "tag of stream type 9 not found"},
        {0, 35, 0, -1, 35, 2, ""},
        {53, 69, 0, -1, 69, 1, ""},
        {0, 0, 0, -1, 5, 0, "#2578"},
        {0, 69, 0, -6, 69, 1, "ZOFLV_ERR_FILEIO.", MemFile::GetPos, 1},
        {53, 99, 0, 1, 99, 2, "cut"},
        {53, 99, 0, -1, -1, 2, "cut|#2602", MemFile::SetPos, 2},
    };
    FlvBuilder b; // tags at 0, 20, 35 and 53, the end at 69
    b.tag(18, 0, fill(5)).tag(8, 10, {}).tag(9, 20, fill(3)).tag(8, 30, {1});
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        LogCapture log;
        MemFile file(b.bytes());
        ZOFLVD_TAG tag{};
        file.seek(5).fail(c.fault, c.nth);
        EXPECT_EQ(zoflvd_tag_next(file.mfal(), file.fh(), &c.start, 9, c.max, &c.end, &tag), c.rc);
        EXPECT_EQ(values(tag.found, tag.pos), c.rc == 0 ? values(1, 35) : values(0, tag.pos));
        EXPECT_EQ(file.calls(MemFile::Read), c.reads);
        if (c.at >= 0) {
            EXPECT_EQ(file.tell(), c.at);
        }
        EXPECT_TRUE(log.is(lines(c.log)));
    }
}

TEST(Tag, WithoutAnArgument)
{
    LogCapture log;
    MemFile file({});
    ZOFLVD_TAG tag{};
    const int64_t at = 1;
    for (int none = 0; none < 5; ++none) { // the one that is null
        const _ZOCMN_MFAL* mfal = none == 0 ? nullptr : file.mfal();
        void* fh = none == 1 ? nullptr : file.fh();
        ZOFLVD_TAG* out = none == 2 ? nullptr : &tag;
        EXPECT_EQ(zoflvd_tag_next(mfal, fh, none == 3 ? nullptr : &at, 9, 0,
                                  none == 4 ? nullptr : &at, out),
                  -1);
        EXPECT_TRUE(log.is({}));
        EXPECT_EQ(none < 3 ? zoflvd_tag_read(mfal, fh, out) : -1, -1);
        EXPECT_TRUE(log.is(lines(none < 3 ? "ERR: invalid argument, exit." : "")));
    }
}

} // namespace
