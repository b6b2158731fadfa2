// SPDX-License-Identifier: Apache-2.0
#include "tests/support/demux.h"

namespace {

const Bytes scrn = hex("13 30 A0 30 78");
const Bytes pcm = hex("0E 01 02");

FlvBuilder repeat(FlvBuilder b, int n, uint8_t type, const Bytes& body)
{
    while (n-- > 0)
        b.tag(type, 0, body);
    return b;
}

TEST(Open, FailuresGiveEverythingBack)
{
    const Bytes good = flv(4, {amf_keyframes({0}, {1})}).tag(8, 0, pcm).bytes();
    const Bytes flags0 = FlvBuilder().header(0).bytes();
    run({
        {good, "err -6", "fopen() failed", -1, MemFile::Open},
        {good, "err -5", "", 0},
        {cut(good, 2), "err -1", "read size error.|#385"},
        {ascii("FLv\1"), "err -3", "ERR: wrong flv signature, exit.|#385"},
        {cut(good, 3), "err -1", "#127|#385"},
        {ascii("FLV\2"), "err -3", "ERR: wrong file format version (2), exit.|#385"},
        {cut(good, 4), "err -6", "#140|#385"},
        {cut(good, 8), "err -6", "#146|#385"},
        {cut(flags0, 9), "err 0", "read err.|#397"},
        {cat({flags0, Bytes(10, 7), {9}}), "err 0", "#397"},
        {flags0, "err 0", "#397", -1, MemFile::GetPos},
        {flags0, "err 0", "malloc err.|#397", 1},
        {good, "err -6", "", -1, MemFile::GetSize},
    });
}

TEST(Open, FindsTheStreams)
{
    const char* const v = "scrn 224x184 61824";
    const char* const va = "scrn 224x184 61824; lpcm 44000x16 1 0 [0102]";
    const std::string no_metadata = "= W zoflvd_metadata: flv file doesn't have metadata as first "
                                    "tag|md read_metadata() failed";
    // DataOffset + 4 in 32 bits is 3: there, a foreign tag of 0x01FFFF bytes.
    const Bytes wrapped = FlvBuilder().header(1, ~0U).raw(Bytes(131076)).tag(9, 0, scrn).bytes();
    const Bytes unnamed = FlvBuilder().header(0).tag(9, 0, scrn).tag(8, 0, pcm).bytes();
    run({
        {flv(1).tag(8, 0, pcm).tag(9, 0, scrn).bytes(), v, ""},
        {repeat(flv(0xFA), 8, 9, scrn).tag(8, 0, pcm).bytes(), va, ""}, // the tenth tag
        {repeat(flv(0xFA), 9, 9, scrn).tag(8, 0, pcm).bytes(), v, ""},
        {unnamed, v, "read err.|" + no_metadata, -1, MemFile::Skip},
        // Byte 10 is the first TagType, and the first tag lies at DataOffset + 4.
        {FlvBuilder().header(0, 18).raw(Bytes(9, 7)).tag(9, 0, scrn).bytes(), v, no_metadata},
        {wrapped, v, no_metadata},
    });
    Dmx small(repeat(flv(5).tag(8, 0, pcm), 2, 9, scrn).bytes());
    Dmx large(repeat(flv(5).tag(8, 0, pcm), 5000, 9, scrn).bytes());
    EXPECT_TRUE(large.h && small.file.calls() == large.file.calls()); // the open's cost
    EXPECT_EQ(small.file.bytes_read, large.file.bytes_read);
}

TEST(Open, DurationAndRegion)
{
    const struct {
        double metadata;
        int64_t given, expected;
    } cases[] = {{10.5, 0, 105000000}, {10, 50000000, 50000000}, {-4, 0, 0},
                 {1.9e-7, 0, 1},       {1e300, 0, INT64_MAX},    {4, -9, -9}};
    for (const auto& c : cases) {
        FlvBuilder b = flv(4, {amf_prop("duration", amf_num(c.metadata))}).tag(8, 0, pcm);
        Dmx d(b.bytes(), c.given);
        ZOFLVD_INFO copy;
        EXPECT_EQ(zoflvd_get_info(d.h, &copy), 0);
        EXPECT_EQ(copy.duration, c.expected);
        EXPECT_EQ(d.h->sh[0].duration, std::max<int64_t>(c.expected, 0));
        const auto start = static_cast<int64_t>(b.tags()[1].pos);
        const ZOFLVD_REGION& r = copy.region[0];
        EXPECT_EQ(values(copy.region_cnt, copy.seekable, copy.aud_cnt), values(1, 1, 1));
        EXPECT_EQ(values(r.pos, r.size), values(start, static_cast<int64_t>(b.size()) - start));
    }
}

TEST(Open, Arguments)
{
    Dmx d(flv(5).tag(9, 0, scrn).tag(8, 0, pcm).bytes());
    LogCapture log;
    ZOFLVD_INFO_VID v;
    ZOFLVD_INFO_AUD a;
    EXPECT_EQ(zoflvd_get_info_vid(d.h, 1, &v), 0);
    EXPECT_EQ(values(v.strm_indx, v.height), values(1, 184));
    EXPECT_EQ(zoflvd_get_info_aud(d.h, 1, &a), 0);
    EXPECT_EQ(a.sample_rate, 224); // any type is taken
    for (const int rc : {zoflvd_get_info(nullptr, &d.info), zoflvd_get_info(d.h, nullptr),
                         zoflvd_get_info_vid(d.h, 2, nullptr), zoflvd_get_info_vid(d.h, -1, &v),
                         zoflvd_get_info_aud(d.h, 2, nullptr), zoflvd_get_info_aud(d.h, 2, &a)})
        EXPECT_EQ(rc, -1);
    EXPECT_FALSE(zoflvd_create(d.file.mfal(), nullptr, &d.info, &d.err));
    EXPECT_TRUE(log.is(lines("info is null|invalid strm_indx.|invalid strm_indx.|#615|#620|"
                             "ERR: invalid argument, exit.|zoflvd_create() failed")));
}

TEST(Open, ALongerStreamRaisesTheDuration)
{
    Dmx dmx(flv(4).tag(8, 0, mp3_tag()).bytes(), 7);
    dmx.h->sh[0].duration = 9;
    zoflvds_close(zoflvds_open(dmx.h, 0, nullptr));
    EXPECT_EQ(zoflvd_get_info(dmx.h, &dmx.info), 0);
    EXPECT_EQ(dmx.info.duration, 9);
}

} // namespace
