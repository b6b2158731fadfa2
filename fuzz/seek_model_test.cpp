// SPDX-License-Identifier: Apache-2.0
// Random seeks, and searches through random bytes, held against the model.
#include "fuzz/seek_model.h"
#include "tests/support/seek.h"

#include <random>

namespace {

/// Random numbers below `n`.
struct Random {
    template <class T>
    T operator()(T n)
    {
        return static_cast<T>(engine() % static_cast<uint64_t>(n));
    }
    std::mt19937_64 engine{20240611}; // the seed, in every run
};

TEST(SeekModel, LandsWhereTheModelSays)
{
    Random random;
    const struct {
        uint8_t flags;      // 1 video, 4 audio
        uint32_t key_every; // frames of 40 ms
        bool indexed = false;
        uint32_t disorder = 1; // of the times, ms
    } files[] = {{5, 12, true}, {1, 1, true},       {5, 12}, {5, 160}, {1, 1},
                 {4, 1},        {5, 9, false, 9000}};
    const auto seeks = [&random](const auto& f, const Bytes& bytes, int stream) {
        Strm t(bytes, stream);
        SeekModel model(bytes, t.s->sh);
        for (int i = 0; i < 4000; ++i) {
            SCOPED_TRACE(::testing::Message() << "stream " << stream << ", seek " << i);
            const int64_t exact = model.tags[random(model.tags.size())].time + f.indexed;
            const int64_t time = i % 5 ? 1 + random(25 * SEC) : exact;
            const int mode = i % 4;
            t.file.reset();
            model.steps = 0;
            const Found tag = f.indexed ? model.by_index(time, mode) : model.seek(time, mode);
            int64_t out = 0;
            long long pos = 0;
            ASSERT_EQ(zoflvds_seek(t.s, &time, &out, mode), tag ? 0 : f.indexed ? 1 : -3);
            t.s->mfal.getpos(t.s->fh, &pos);
            ASSERT_TRUE(!tag || (out == tag->time && pos == tag->pos)) << out << ", at " << pos;
            const int most = (mode == 3 ? 2 : 1) * 65536 + 16 * model.steps;
            ASSERT_TRUE(f.indexed ? t.file.calls(MemFile::Read) <= 3
                                  : f.disorder > 1 || t.file.bytes_read <= most);
        }
    };
    for (const auto& f : files) {
        SCOPED_TRACE(&f - files);
        FlvBuilder flv = f.indexed ? FlvBuilder().header(f.flags)
                                   : ::flv(f.flags, {amf_prop("duration", amf_num(24))});
        for (uint32_t i = 0; i < 600; ++i) {
            const bool key = i % f.key_every == 0;
            const uint32_t ms = 1 + i * 40 + random(f.disorder);
            Bytes screen = hex(key ? "13 30 A0 30 78" : "33 30 A0 30 78");
            screen.resize(5 + random(key ? 6000U : 1500U), 0xAA);
            if (f.flags & 1)
                flv.tag(9, ms, screen);
            if (f.flags & 4)
                flv.tag(8, ms + random(40U), mp3_tag(Bytes(random(500U), 0xAA)));
        }
        const Bytes& bytes = f.indexed ? flv.indexed().bytes() : flv.bytes();
        for (int stream = 0; stream < (f.flags == 5 ? 2 : 1); ++stream)
            seeks(f, bytes, stream);
    }
}

TEST(SeekModel, BackOffEqualsTheFullSearch)
{
    Random random;
    uint8_t buf[2048];
    const Bytes likely = hex("000000000000 08 09 12 0B");
    for (int i = 0; i < 99; ++i) {
        SCOPED_TRACE(i);
        // A filler, bytes that often look like a header, or any; and tags over one another.
        Bytes bytes(40000 + random(160000U));
        for (uint8_t& byte : bytes)
            byte = i % 3 == 0 ? 0x55 : i % 3 == 1 ? likely[random(10U)] : random(uint8_t{255});
        BareStrm t(bytes, 18, 1000 * SEC);
        t.s.sh.data_start = random(int64_t{1000});
        t.s.sh.data_len = t.s.sh.file_size - t.s.sh.data_start;
        const int64_t target = random(int64_t{1000}) * SEC;
        const int64_t est = t.s.sh.data_start + target / MS * t.s.sh.data_len / (1000 * SEC / MS);
        for (uint32_t n = random(i % 2 ? 8U : 3000U); n > 0; --n) {
            const Bytes body(random(n % 7 ? 200U : 70000U), 0xAA);
            const uint32_t ms = random(UINT32_MAX) >> random(9U);
            const Bytes tag = FlvBuilder().tag(n % 3 ? 9 : 18, ms, body).bytes();
            // Anywhere, or about where a round begins or its second window.
            const int64_t near = est - random(4) * 32768 + random(2) * 2040 - random(3);
            const int64_t at = n % 4 ? random(t.s.sh.file_size) : near;
            const int64_t end = at + static_cast<int64_t>(tag.size());
            if (at < 0 || end > t.s.sh.file_size)
                continue;
            std::copy_n(tag.begin(), 11, &bytes[static_cast<size_t>(at)]);
            const Bytes prev = be(tag.size() - 4 + (n % 5 ? 0 : random(6U)), 4);
            std::copy_n(prev.begin(), 4, &bytes[static_cast<size_t>(end) - 4]);
        }
        MemFile file(bytes);
        t.s.fh = file.fh();
        const auto search = [&](int64_t start, int64_t limit) {
            ZOFLVD_TAG found = {77, 0, 0, 0, 0, 0, 0};
            const Found naive = plausible(bytes, start, limit);
            EXPECT_EQ(zoflvds_seek_bytestream_tag(&t.s.mfal, file.seek(start).fh(), buf, start,
                                                  limit, &found),
                      naive ? 0 : 1);
            EXPECT_EQ(found.type, naive ? naive->type : 77);
            EXPECT_TRUE(!naive || (found.pos == naive->pos && found.timestamp == naive->time &&
                                   found.data_size == naive->size &&
                                   file.tell() == naive->pos + naive->size + 15));
            return naive;
        };
        const Found tag = back_off(t.s.sh, target, [&](int64_t start) {
            const Found found = search(start, t.s.sh.file_size);
            if (found) // has to end before the limit
                search(start, found->pos + found->size + 15);
            return found;
        });
        // The stream's type stops the crawler at once: the file stays on the tag found.
        LogCapture log;
        EXPECT_EQ(zoflvds_seek_bytestream(&t.s, &target, nullptr, 0), -1);
        EXPECT_EQ(log.has("E zoflvd_crawl: #*"), tag.has_value());
        EXPECT_EQ(tag ? file.tell() : 0, tag ? tag->pos : 0);
    }
}

} // namespace
