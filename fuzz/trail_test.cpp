// SPDX-License-Identifier: Apache-2.0
#include "fuzz/trail_check.h"
#include "tests/support/flv_builder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>

namespace {

struct At {
    size_t tag, size, later; ///< a tag, its body's size, the one three after it
};
void put(Bytes* file, size_t at, const Bytes& bytes)
{
    std::copy(bytes.begin(), bytes.end(), file->begin() + static_cast<ptrdiff_t>(at));
}
void insert(Bytes* file, size_t at, const Bytes& bytes)
{
    file->insert(file->begin() + static_cast<ptrdiff_t>(at), bytes.begin(), bytes.end());
}
Bytes tag(uint8_t type, const Bytes& body)
{
    return FlvBuilder().tag(type, 0, body).bytes();
}
void jump(Bytes* f, size_t from, size_t to, bool linked)
{
    put(f, from + 1, be(to - from - 15, 3));
    if (linked)
        put(f, to - 4, be(to - from - 4, 4));
}

// What could make a reader lose frames in silence, or take others for the file's.
const std::function<void(Bytes*, const At&)> edits[] = {
    [](Bytes* f, const At& a) { jump(f, a.tag, a.later, false); },
    [](Bytes* f, const At& a) { jump(f, a.tag, a.later, true); },
    [](Bytes* f, const At& a) { jump(f, a.tag, f->size(), false); },
    [](Bytes* f, const At& a) { jump(f, a.tag, f->size(), true); },
    [](Bytes* f, const At& a) { jump(f, a.tag, f->size() + 1, false); },
    [](Bytes* f, const At& a) { put(f, a.tag + 1, be(a.size / 2, 3)); },
    [](Bytes* f, const At& a) { (*f)[a.tag] |= 0x20; },
    [](Bytes* f, const At& a) { (*f)[a.tag] |= 0x80; },
    [](Bytes* f, const At& a) { (*f)[a.tag] = 8; },
    [](Bytes* f, const At& a) { (*f)[a.tag] = 9; },
    [](Bytes* f, const At& a) { (*f)[a.tag + 10] = 1; },
    [](Bytes* f, const At& a) { put(f, a.tag - 4, be(1, 4)), (*f)[a.tag + 10] = 1; },
    [](Bytes* f, const At& a) { (*f)[a.tag + 7] = 0x80; },
    [](Bytes* f, const At& a) { (*f)[a.tag + 11] ^= 0x08; },
    [](Bytes* f, const At& a) { (*f)[a.tag + 11] |= 0x90; },
    [](Bytes* f, const At& a) { (*f)[a.tag + 11] = 0x57; },
    [](Bytes* f, const At& a) { (*f)[a.tag + 12] = 0; },
    [](Bytes* f, const At& a) { (*f)[a.tag + 12] = 2; },
    [](Bytes* f, const At& a) { (*f)[a.tag + 13] = 0x80; },
    [](Bytes* f, const At& a) { put(f, a.tag + 16, be(a.size > 20 ? 7 : 0, 4)); },
    [](Bytes* f, const At& a) { insert(f, a.tag, tag(8, {})); },
    [](Bytes* f, const At& a) { insert(f, a.tag, tag(9, {0x17})); },
    [](Bytes* f, const At& a) { insert(f, a.tag, tag(9, hex("17 02 00 00 00"))); },
    [](Bytes* f, const At& a) { insert(f, a.tag, tag(9, hex("27 01 00 00 00"))); },
    [](Bytes* f, const At& a) { insert(f, a.tag, tag(9, hex("17 02 00 00 00 00"))); },
    [](Bytes* f, const At& a) {
        const Bytes record = avc_record({avc_sps(4, 3)}, {hex("68 CE")}, 2);
        insert(f, a.tag, tag(9, avc_config_tag(record)));
    },
    [](Bytes* f, const At& a) { insert(f, a.tag, tag(8, aac_config_tag())); },
    [](Bytes* f, const At& a) { insert(f, a.tag, tag(15, fill(30))); },
    [](Bytes* f, const At& a) { insert(f, a.tag, fill(30)); },
    [](Bytes* f, const At& a) { insert(f, a.tag, FlvBuilder().header().bytes()); },
    [](Bytes* f, const At&) { insert(f, f->size(), fill(9)); },
    [](Bytes* f, const At& a) { f->resize(a.later - 4); },
    [](Bytes* f, const At&) { (*f)[8] = 13; },
};

} // namespace

TEST(TagTrail, TellsWhatAWalkOverTheFileTells)
{
    int streams = 0;
    const std::filesystem::path samples = ZOFLV_SOURCE_DIR "/samples";
    for (const auto& path : std::filesystem::directory_iterator(samples)) {
        if (path.path().extension() != ".flv")
            continue;
        std::ifstream in(path.path(), std::ios::binary);
        Bytes sound{std::istreambuf_iterator<char>(in), {}};
        std::vector<size_t> tags;
        for (size_t at = 13; at + 15 < sound.size() && tags.size() < 24;) {
            tags.push_back(at);
            at += 15 + (size_t{sound[at + 1]} << 16 | size_t{sound[at + 2]} << 8 | sound[at + 3]);
        }
        streams += check_trails(sound.data(), sound.size()); // each to the end
        sound.resize(tags.back());
        tags.pop_back();
        for (size_t i = 1; i + 3 < tags.size(); ++i) {
            for (const auto& edit : edits) {
                Bytes edited = sound;
                edit(&edited, {tags[i], tags[i + 1] - tags[i] - 15, tags[i + 3]});
                check_trails(edited.data(), edited.size());
            }
        }
    }
    EXPECT_EQ(streams, 16);
}
