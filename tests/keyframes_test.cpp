// SPDX-License-Identifier: Apache-2.0
#include "tests/support/demux.h"

namespace {

/// Pictures with codec data, which are stream 1, and PCM.
Bytes indexed(const std::vector<double>& times, const std::vector<double>& positions)
{
    const Bytes size = amf_num(8), index = amf_keyframes(times, positions);
    FlvBuilder b = flv(5, {amf_prop("width", size), amf_prop("height", size), index});
    return b.tag(9, 0, hex("11 0102")).tag(8, 0, hex("0E 01")).bytes();
}

/// Keyframes a second apart.
Bytes counted(size_t count)
{
    std::vector<double> times;
    while (times.size() < count)
        times.push_back(static_cast<double>(times.size()));
    return indexed(times, std::vector<double>(count, 13));
}

TEST(KeyframeIndex, FromTheMetadata)
{
    const std::string failed = "zoflvd_kf_build_metadata() failed";
    const std::string not_open = "zoflvds_open() failed";
    const std::string out = "W keyframe cache from metadata: failed|" + not_open;
    const std::string add = "W zoflvd_mblk_elem_add() failed|" + failed + "|" + out;
    FlvBuilder none = flv(5, {amf_keyframes({}, {13}), amf_prop("times", hex("0A 00000001 05"))});
    const std::string upd = "W zoflvd_mblk_upd_meta() failed|" + failed + "|" + out;
    const struct {
        Bytes file;
        std::string index, log; // "time@position", or the code
        MemFile::Kind fault = MemFile::Any;
        int nth_alloc = -1;
    } cases[] = {
        {indexed({0, 2, 4}, {13, 5000}), "0@13 20000000@5000 ", ""},
        {indexed({1}, {13, 5000}), "10000000@13 ", ""},
        {indexed({1.23456789, -1.9e-7}, {13.9, 7.99}), "12345678@13 -1@7 ", ""},
        {indexed({1e300, 0}, {13, -1e300}), "9223372036854775807@13 0@-9223372036854775808 ", ""},
        {indexed({}, {99999999}), "", ""},
        {none.tag(9, 0, hex("13 30 A0 30 78")).tag(8, 0, hex("0E 01")).bytes(), "", ""},
        {indexed({0}, {-1}), "", "1st position of idx talbe is invalid|" + failed},
        {indexed({0}, {-0.5}), "", "W zoflv first tag_header type is invalid|" + failed},
        {counted(1), "", "#*|" + failed, MemFile::SetPos},
        {indexed({0}, {1e6}), "-6", "#*|" + out},
        {counted(256), "-5", add, MemFile::Any, 2},
        {counted(256), "-5", upd, MemFile::Any, 3},
        {indexed({}, {}), "-6", not_open, MemFile::Open},
        {indexed({}, {}), "-6", not_open, MemFile::SetPos},
        {indexed({}, {}), "-5", not_open, MemFile::Any, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        Dmx d(c.file);
        LogCapture log;
        HeapFaults heap;
        const auto arm = [&] {
            heap.fail(c.nth_alloc);
            d.file.reset().fail(c.fault, c.fault == MemFile::Any ? -1 : 0);
        };
        arm();
        int err = 77;
        ZOFLVDS* s = zoflvds_open(d.h, 0, &err); // the audio stream has the index too
        EXPECT_TRUE(log.is(lines(c.log)));
        std::string text = s ? "" : std::to_string(err);
        for (uint32_t i = 0; s && i < zoflvd_mblk_elem_cnt(&s->idx); ++i) {
            ZOFLVD_KF kf; // aligned to 4 bytes only in a block of a 32-bit host
            std::memcpy(&kf, zoflvd_mblk_elem_nth(&s->idx, i), sizeof kf);
            text += std::to_string(kf.time) + "@" + std::to_string(kf.pos) + " ";
        }
        EXPECT_EQ(text, c.index);
        zoflvds_close(s);
        arm(); // the same through a temporary stream
        const int expected = text.empty() ? -2 : s ? 0 : err;
        EXPECT_EQ(zoflvd_get_idx_table(d.h, 1, nullptr, 0, nullptr, nullptr), expected);
        EXPECT_EQ(log.has("W zoflvd: zoflvds_open failed"), s == nullptr);
        EXPECT_EQ(values(d.file.open_handles, heap.live()), values(0, 0));
    }
}

TEST(KeyframeIndex, Table)
{
    LogCapture log;
    for (const int count : {1, 255, 300}) { // entries, in one block and in two
        Strm t(counted(static_cast<size_t>(count)), 1);
        std::vector<int64_t> expected, table(2U * size_t(count), -1);
        for (int64_t i = 0; i < count; ++i) {
            int64_t first = -1;
            std::memset(&first, 0, 4); // of 8 bytes
            expected.insert(expected.end(), {first, i * 10000000});
        }
        int size = 0, cnt = 0;
        EXPECT_EQ(zoflvds_get_idx_table(t.s, table.data(), count * 16 - 1, &size, &cnt), -4);
        EXPECT_EQ(values(size, cnt, table[0]), values(count * 16, count, -1));
        EXPECT_EQ(zoflvd_get_idx_table(t.h, 1, table.data(), size, nullptr, nullptr), 0);
        EXPECT_EQ(table, expected);
    }
    EXPECT_TRUE(log.is({}));
    int size = 77;
    Strm audio(counted(3), 0);
    EXPECT_EQ(zoflvds_get_idx_table(audio.s, nullptr, 0, &size, &size), -2);
    EXPECT_EQ(zoflvd_get_idx_table(audio.h, 0, nullptr, 0, &size, &size), -2);
    EXPECT_EQ(zoflvd_get_idx_table(audio.h, 2, nullptr, 0, &size, &size), -1);
    EXPECT_EQ(size, 77);
    audio.s->idx.elem_cnt = 4; // more than the blocks hold
    audio.s->sh.strm_type = 9;
    EXPECT_EQ(zoflvds_get_idx_table(audio.s, Bytes(64).data(), 64, nullptr, nullptr), -1);
    EXPECT_TRUE(log.is(lines("#*|#*|#*|#*")));
}

} // namespace
