// SPDX-License-Identifier: Apache-2.0
// Where "previous" seeks land, judged by the list of tags alone: nothing here knows how the demuxer
// searches, and each landing is told by the frame read next.
#include "tests/support/demux.h"

#include <random>

namespace {

using Tag = FlvBuilder::Tag;

struct File {
    const char* name;
    uint8_t flags;             // 1 video, 4 audio
    uint32_t frame_ms, key_ms; // distance of pictures, of keyframes
    uint32_t audio_ms;
    bool indexed;
};

/// A minute, in order of time. Sizes and the audio's times vary.
FlvBuilder recording(const File& f, std::mt19937& random)
{
    FlvBuilder flv = f.indexed ? FlvBuilder().header(f.flags)
                               : ::flv(f.flags, {amf_prop("duration", amf_num(60))});
    for (uint32_t ms = 0, audio = 7; ms < 60000; ms += f.frame_ms) {
        for (; f.flags & 4 && audio < ms + 7; audio += f.audio_ms)
            flv.tag(8, audio, mp3_tag(Bytes(100 + random() % 400, 0xAA)));
        Bytes picture = hex(ms % f.key_ms ? "33 30 A0 30 78" : "13 30 A0 30 78");
        picture.resize((ms % f.key_ms ? 100 : 2000) + random() % 1900, 0xAA);
        if (f.flags & 1)
            flv.tag(9, ms, picture);
    }
    return f.indexed ? flv.indexed({amf_prop("duration", amf_num(60))}) : flv;
}

/// Where a frame of `type` read next may be, in ms: the keyframe at or before the target, or the first
/// tag of the other stream after it; at a keyframe's own time that one or the one before.
std::vector<int64_t> landings(const std::vector<Tag>& tags, uint8_t type, int64_t target)
{
    std::vector<int64_t> out;
    for (auto key = tags.rbegin(); key != tags.rend(); ++key) {
        if (!key->key || key->time_ms * MS > target)
            continue;
        const auto frame = std::find_if(key.base() - 1, tags.end(),
                                        [type](const Tag& tag) { return tag.type == type; });
        out.push_back(frame->time_ms);
        if (key->time_ms * MS < target)
            break;
    }
    return out;
}

TEST(SeekOracle, PreviousIsWhereTheTagsSay)
{
    const File files[] = {
        {"index", 5, 40, 2000, 23, true},
        {"index, long gaps", 5, 40, 9000, 460, true},
        {"index, video alone", 1, 100, 1000, 1, true},
        {"no index", 5, 40, 2000, 23, false},
        {"no index, all keyframes", 5, 40, 40, 26, false},
        {"no index, long gaps", 5, 40, 9000, 64, false},
        {"no index, video alone", 1, 40, 1000, 1, false},
        {"no index, audio alone", 4, 40, 40, 26, false},
    };
    std::mt19937 random(20250101); // the seed, in every run
    for (const File& f : files) {
        const FlvBuilder flv = recording(f, random);
        std::vector<Tag> keys;
        for (const Tag& tag : flv.tags())
            if (f.flags & 1 ? tag.key : tag.type == 8)
                keys.push_back(tag);
        for (int stream = 0; stream < (f.flags == 5 ? 2 : 1); ++stream) {
            Strm t(flv.bytes(), stream);
            const uint8_t type = t.s->sh.strm_type;
            for (int i = 0; i < 1500; ++i) {
                const int64_t own = keys[random() % keys.size()].time_ms * MS;
                const int64_t target = i % 3 ? static_cast<int64_t>(random() % 59000000) * 10 : own;
                SCOPED_TRACE(std::string(f.name) + ", tag type " + std::to_string(type) + ", to " +
                             std::to_string(target));
                ASSERT_EQ(zoflvds_seek(t.s, &target, nullptr, 0), 0);
                ASSERT_EQ(t.read(), 0);
                const int64_t ms = t.time / MS;
                if (f.indexed) {
                    const std::vector<int64_t> allowed = landings(flv.tags(), type, target);
                    ASSERT_TRUE(std::count(allowed.begin(), allowed.end(), ms))
                        << ms << ", not one of " << ::testing::PrintToString(allowed);
                    continue;
                }
                const auto in = [&](int64_t after, int64_t last) { // keyframes in the span
                    return std::count_if(keys.begin(), keys.end(), [&](const Tag& key) {
                        return key.time_ms * MS > after && key.time_ms * MS <= last;
                    });
                };
                ASSERT_LE(t.time, target + 100 * MS);
                ASSERT_LE(in(t.time, target), 2)
                    << "keyframes between " << ms << " ms and the target";
                ASSERT_TRUE(type == 8 || in(t.time - 1, t.time) == 1) << "no keyframe at " << ms;
            }
        }
    }
}

} // namespace
