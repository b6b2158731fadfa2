// SPDX-License-Identifier: Apache-2.0
#include "tests/support/demux.h"

#include <cmath>
#include <cstring>

namespace {

/// Screen video, which is stream 1, and PCM behind `props`.
Bytes file_with(std::initializer_list<Bytes> props)
{
    return flv(5, props).tag(9, 0, hex("13 30A0 3078")).tag(8, 0, hex("0E 01")).bytes();
}

Bytes indexed(const std::vector<double>& times, const std::vector<double>& positions)
{
    return file_with({amf_keyframes(times, positions)});
}

/// Keyframes half a second apart.
Bytes counted(size_t count)
{
    std::vector<double> times(count);
    for (size_t i = 0; i < count; ++i)
        times[i] = static_cast<double>(i) / 2;
    return indexed(times, std::vector<double>(count, 13));
}

TEST(KeyframeIndex, FromTheMetadata)
{
    const double inf = INFINITY;
    const std::string failed = "zoflvd_kf_build_metadata() failed";
    const std::string bad_type = "W zoflv first tag_header type is invalid|" + failed;
    const std::string not_open = "zoflvds_open() failed";
    const std::string out = "W keyframe cache from metadata: failed|" + not_open;
    const Bytes jpeg = hex("11 0102"), size = amf_num(8); // both streams have codec data
    FlvBuilder b = flv(5, {amf_prop("width", size), amf_prop("height", size)});
    const Bytes pictures = b.tag(9, 0, jpeg).tag(8, 0, hex("0E 01")).bytes();
    const std::string add = "W zoflvd_mblk_elem_add() failed|" + failed + "|" + out;
    const std::string upd = "W zoflvd_mblk_upd_meta() failed|" + failed + "|" + out;
    const struct {
        Bytes file;
        std::string index, log; // "time@position", or the code
        MemFile::Kind fault = MemFile::Any;
        int nth_alloc = -1;
    } cases[] = {
        {indexed({0, 2, 4}, {13, 5000, 9000}), "0@13 20000000@5000 40000000@9000 ", ""},
        {indexed({0, 2, 4}, {13, 5000}), "0@13 20000000@5000 ", ""},
        {indexed({1}, {13, 5000}), "10000000@13 ", ""},
        {indexed({1.23456789, -1.9e-7}, {13.9, 7.99}), "12345678@13 -1@7 ", ""},
        {indexed({inf, -inf, NAN}, {13, inf, NAN}),
         "9223372036854775807@13 -9223372036854775808@9223372036854775807 0@0 ", ""},
        {file_with({}), "", ""},
        {file_with({amf_prop("filepositions", amf_array({13}))}), "", ""},
        {indexed({}, {99999999}), "", ""},
        {file_with({amf_prop("filepositions", amf_array({1e9})),
                    amf_prop("times", hex("0A 00000001 05"))}),
         "", ""},
        {indexed({0}, {-1}), "", "1st position of idx talbe is invalid|" + failed},
        {indexed({0}, {-0.5}), "", bad_type},
        {indexed({0, 1}, {14, 13}), "", bad_type},
        {counted(1), "", "#*|" + failed, MemFile::SetPos},
        {counted(1), "-6", "#*|" + out, MemFile::Read},
        {indexed({0}, {1e6}), "-6", "#*|" + out},
        {indexed({0}, {inf}), "-6", "#*|" + out},
        {counted(256), "-5", add, MemFile::Any, 1},
        {counted(256), "-5", add, MemFile::Any, 2},
        {counted(256), "-5", upd, MemFile::Any, 3},
        {counted(1), "-5", not_open, MemFile::Any, 0}, // the rest of the open
        {pictures, "-6", not_open, MemFile::Open},
        {pictures, "-6", not_open, MemFile::SetPos},
        {pictures, "-5", not_open, MemFile::Any, 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        Dmx d(c.file);
        for (const int stream : {0, 1}) { // either has an index
            LogCapture log;
            HeapFaults heap;
            heap.fail(c.nth_alloc);
            d.file.reset().fail(c.fault, c.fault == MemFile::Any ? -1 : 0);
            int err = 77;
            ZOFLVDS* s = zoflvds_open(d.h, stream, &err);
            EXPECT_TRUE(log.is(lines(c.log)));
            std::string text = s ? "" : std::to_string(err);
            for (uint32_t i = 0; s && i < zoflvd_mblk_elem_cnt(&s->idx); ++i) {
                const auto* kf = static_cast<const ZOFLVD_KF*>(zoflvd_mblk_elem_nth(&s->idx, i));
                text += std::to_string(zoflvd_kf_time(kf)) + "@" + std::to_string(kf->pos) + " ";
            }
            EXPECT_EQ(text, c.index);
            zoflvds_close(s);
            heap.fail(c.nth_alloc); // the same through a temporary stream
            d.file.reset().fail(c.fault, c.fault == MemFile::Any ? -1 : 0);
            const int expected = text.empty() ? -2 : s ? 0 : err;
            EXPECT_EQ(zoflvd_get_idx_table(d.h, 1, nullptr, 0, nullptr, nullptr), expected);
            EXPECT_EQ(log.has("W zoflvd: zoflvds_open failed"), s == nullptr);
            EXPECT_TRUE(d.file.open_handles == 0 && heap.live() == 0);
        }
    }
}

TEST(KeyframeIndex, Search)
{
    Strm t(indexed({0, 2, 4}, {13, 5000, 9000}), 1);
    const uint8_t* e = zoflvd_mblk_data(t.s->idx.first);
    // The key, the entry found, the comparisons with all: an entry matches from its time to the
    // next one's, both included, and the last one always.
    const int64_t cases[][5] = {{-1, -1, -1, -1, -1},     {0, 0, 0, -1, -1},
                                {19999999, 0, 0, -1, -1}, {20000001, 1, 1, 0, -1},
                                {30000000, 1, 1, 0, -1},  {40000000, 1, 1, 0, 0},
                                {40000001, 2, 1, 1, 0},   {50000000, 2, 1, 1, 0}};
    for (const auto& c : cases) {
        EXPECT_EQ(zoflvd_mblk_elem_find(&t.s->idx, c, zoflvd_kf_compare),
                  c[1] < 0 ? nullptr : e + 16 * c[1]);
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(zoflvd_kf_compare(c, e + 16 * i, t.s->idx.first), c[2 + i]) << c[0];
    }
}

TEST(KeyframeIndex, Table)
{
    for (const int count : {1, 255, 300}) {
        Strm t(counted(static_cast<size_t>(count)), 1);
        EXPECT_EQ(t.s->idx.meta_array != nullptr, count > 255);
        Bytes expected;
        for (int64_t i = 0; i < count; ++i) {
            const int64_t times[] = {static_cast<int64_t>(0xEEEEEEEE00000000), i * 5000000};
            expected.resize(expected.size() + 16);
            std::memcpy(&expected[expected.size() - 16], times, 16);
        }
        for (const bool stream : {true, false}) {
            const auto table = [&](void* buf, int buf_size, int* size, int* cnt) {
                return stream ? zoflvds_get_idx_table(t.s, buf, buf_size, size, cnt)
                              : zoflvd_get_idx_table(t.h, 1, buf, buf_size, size, cnt);
            };
            int size = 0, cnt = 0;
            Bytes buf(expected.size(), 0xEE);
            EXPECT_EQ(table(buf.data(), count * 16 - 1, &size, &cnt), -4);
            EXPECT_EQ(buf, Bytes(expected.size(), 0xEE));
            EXPECT_TRUE(size == count * 16 && cnt == count);
            EXPECT_TRUE(table(nullptr, 0, &size, nullptr) == 0 && size == count * 16);
            EXPECT_EQ(table(buf.data(), count * 16, nullptr, nullptr), 0);
            EXPECT_EQ(buf, expected);
        }
        EXPECT_EQ(t.file.open_handles, 1);
    }
    LogCapture log;
    int size = 77;
    Strm empty(file_with({}), 1);
    Strm audio(counted(3), 0);
    EXPECT_EQ(zoflvds_get_idx_table(empty.s, nullptr, 0, &size, &size), -2);
    EXPECT_EQ(zoflvds_get_idx_table(audio.s, nullptr, 0, &size, &size), -2);
    EXPECT_EQ(zoflvd_get_idx_table(audio.h, 0, nullptr, 0, &size, &size), -2);
    EXPECT_EQ(zoflvd_get_idx_table(audio.h, 2, nullptr, 0, &size, &size), -1);
    EXPECT_EQ(zoflvd_get_idx_table(audio.h, -1, nullptr, 0, &size, &size), -1);
    EXPECT_EQ(size, 77);
    audio.s->idx.elem_cnt = 4; // more than the blocks hold
    audio.s->sh.strm_type = 9;
    EXPECT_EQ(zoflvds_get_idx_table(audio.s, Bytes(64).data(), 64, nullptr, nullptr), -1);
    EXPECT_TRUE(log.is(lines("#*|#*|#*|#*|#*|#*")));
}

} // namespace
