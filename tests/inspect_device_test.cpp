// SPDX-License-Identifier: Apache-2.0
// What a device does with a file: the frames that count, those that came, where seeks land.
#include "inspect/device_run.h"
#include "tests/support/flv_builder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <zoflv_host/log.h>

using namespace zoflv_inspect;

namespace {

std::string error; // of the loader
const auto plugin = zoflv_host::ExtractorLibrary::load(ZOFLV_PLUGIN, &error);

DeviceReport run(const Bytes& file, const DeviceOptions& options = {})
{
    const zoflv_host::ScopedLogSink silent([](int, const std::string&, const std::string&) {});
    MemorySource bytes(file.data(), file.size());
    TagWalker walker(bytes);
    DeviceRun device(*plugin, std::make_shared<zoflv_host::MemoryDataSource>(file), options);
    while (const Item* item = walker.next())
        device.see(*item, walker);
    return device.finish();
}

Bytes sample(const std::string& name)
{
    std::ifstream in(ZOFLV_SOURCE_DIR "/samples/" + name + ".flv", std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

/// "expected delivered missing unread foreign"
std::string text(const FrameCount& count)
{
    std::string text;
    for (const uint64_t n :
         {count.expected, count.delivered, count.missing, count.unread, count.foreign})
        text += (text.empty() ? "" : " ") + std::to_string(n);
    return text;
}

const Bytes H263_KEY = hex("12 00 00 84 01 93 00 01"), H263_INTER = hex("22 00 00 84 01 D3 00 02");
const Bytes PCM_TAG = hex("3E 01 02 03 04");
const Bytes SPS_TAG = avc_config_tag(avc_record({avc_sps(4, 3)}, {hex("68 CE")}));
const Bytes UNIT = avc_tag({fill(9)});

} // namespace

TEST(InspectExpected, SizesAndWhatCounts)
{
    const struct {
        const char* name;
        uint8_t type;
        std::vector<Bytes> bodies;
        std::string expected; ///< sizes, of what does not count in brackets
    } cases[] = {
        {"avc before a configuration", 9, {UNIT, SPS_TAG, UNIT}, "[17] 13"},
        {"avc configuration again", 9, {SPS_TAG, UNIT, SPS_TAG}, "[17] 13 [17]"},
        {"length size 2",
         9,
         {avc_config_tag(avc_record({avc_sps(4, 3)}, {hex("68 CE")}, 2)),
          avc_tag({fill(9), fill(2)}, true, 2)},
         "[17] 19"},
        {"end of sequence, empty, cut short",
         9,
         {SPS_TAG, hex("17 02 00 00 00"), hex("17 01 00 00 00"), hex("17 01")},
         "[17]"},
        {"a unit longer than its tag, a rest",
         9,
         {SPS_TAG, hex("17 01 00 00 00 00 00 00 09 01 02"),
          hex("17 01 00 00 00 00 00 00 01 FF 00 00")},
         "[17] 6 5"},
        {"a unit larger than a window",
         9,
         {SPS_TAG, avc_tag({fill(9000), fill(5000), {1}})},
         "[17] 14013"},
        {"h.263, vp6 with its adjustment byte", 9, {H263_KEY, hex("14 00 01 02")}, "7 3"},
        {"aac, with another configuration",
         8,
         {aac_config_tag(), aac_tag({1, 2}), aac_tag({}), aac_config_tag()},
         "[2] 2 [2]"},
        {"mp3, without payload", 8, {mp3_tag(), hex("2F"), {}}, "4"},
        {"codecs of a newer header",
         9,
         {hex("90 68 76 63 31 01 02"), hex("91 68 76 63 31 00 00 00 01 02")},
         "[2] 2"},
    };
    for (const auto& c : cases) {
        FlvBuilder builder = FlvBuilder().header();
        for (const Bytes& body : c.bodies)
            builder.tag(c.type, 0, body);
        MemorySource source(builder.bytes().data(), builder.size());
        TagWalker walker(source);
        FrameRules rules(c.type == 8 ? Kind::AUDIO : Kind::VIDEO);
        std::string got;
        while (const Item* item = walker.next()) {
            const auto frame =
                item->kind == ItemKind::TAG ? rules.expect(item->tag, walker) : std::nullopt;
            if (!frame)
                continue;
            const std::string size = std::to_string(frame->size);
            got += (got.empty() ? "" : " ") + (frame->counts ? size : '[' + size + ']');
        }
        EXPECT_EQ(got, c.expected) << c.name;
    }
}

// Each frame is a letter: its time and size. In capitals it is a configuration.
TEST(InspectFrameMatcher, Counts)
{
    const auto size_of = [](char c) { return static_cast<uint32_t>(c | 0x20); };
    const std::string many(200, 'a');
    const struct {
        const char* name;
        std::string expected, delivered;
        std::string counts;
        int64_t gap_from, gap_to; ///< of the first gap, else of the end; tags are 10 bytes apart
    } cases[] = {
        {"all", "abcd", "abcd", "4 4 0 0 0", -1, -1},
        {"configurations come or not", "aBcDe", "aBce", "3 3 0 0 0", -1, -1},
        {"nothing", "abc", "", "3 0 0 3 0", 0, 10},
        {"the end is missing", "abcd", "ab", "4 2 0 2 0", 10, 30},
        {"some are missing", "abcdef", "abef", "6 4 2 0 0", 10, 30},
        {"a false one", "abcd", "abxcd", "4 4 0 0 1", 10, 20},
        {"false ones at the end", "ab", "abxy", "2 2 0 0 2", 10, INT64_MAX},
        {"changed for another", "abcd", "abxd", "4 3 1 0 1", 10, 30},
        {"others for all", "abcd", "wxyz", "4 0 0 4 4", 0, 10},
        {"far ahead", "q" + many + "rs", "qs", "203 2 201 0 0", 0, 20},
        {"too far ahead", "q" + many + many + "r", "qr", "402 1 0 401 1", 0, 20},
        {"a track of something else", "b" + many, "b" + std::string(1000, 'x'), "201 1 0 200 256",
         0, 20},
        {"more configurations than it waits for", std::string(900, 'C') + "a",
         std::string(900, 'C') + "a", "1 1 0 0 0", -1, -1},
    };
    for (const auto& c : cases) {
        FrameMatcher matcher;
        size_t next = 0;
        const auto deliver = [&] {
            if (next == c.delivered.size())
                return matcher.end_of_frames();
            matcher.deliver({0, size_of(c.delivered[next++])});
        };
        for (size_t i = 0; i < c.expected.size(); ++i) {
            ExpectedFrame frame;
            frame.counts = c.expected[i] >= 'a';
            frame.size = size_of(c.expected[i]);
            frame.offset = static_cast<int64_t>(i) * 10;
            frame.end = frame.offset + 10;
            matcher.expect(frame);
            while (matcher.wants())
                deliver();
        }
        while (next < c.delivered.size() && !matcher.count().gave_up)
            deliver();
        matcher.finish();
        const FrameCount& count = matcher.count();
        EXPECT_EQ(text(count), c.counts) << c.name;
        const auto gap = count.first_gap ? count.first_gap : count.end_gap;
        EXPECT_EQ(gap ? gap->from : -1, c.gap_from) << c.name;
        EXPECT_EQ(gap ? gap->to : -1, c.gap_to) << c.name;
        EXPECT_EQ(count.complete(), !gap) << c.name;
    }
}

TEST(InspectSyncPoints, Hits)
{
    const auto points_of = [](Kind kind, std::initializer_list<int64_t> seconds) {
        SyncPoints points(kind);
        ExpectedFrame frame;
        for (const int64_t second : seconds) {
            frame.keyframe = true;
            frame.dts_ms = second * 1000;
            frame.size = 7;
            points.add(frame);
            frame.keyframe = false; // and one that is none, 40 ms later
            frame.dts_ms += 40;
            points.add(frame);
        }
        points.finish();
        return points;
    };
    const SyncPoints video = points_of(Kind::VIDEO, {30, 2, 4, 6, 8, 10, 8});
    const SyncPoints audio = points_of(Kind::AUDIO, {2, 4, 6});
    const struct {
        const SyncPoints& points;
        SeekMode mode;
        int64_t target_ms, ideal_ms;       ///< -1: none
        std::vector<int64_t> hits, misses; ///< -1: nothing found
    } cases[] = {
        {video, SeekMode::PREVIOUS, 9000, 8000, {8000, 6000, 4000}, {-1, 2000, 10000, 8040}},
        {video, SeekMode::PREVIOUS, 9900, 8000, {8000, 10000}, {9900}},
        {video, SeekMode::PREVIOUS, 10000, 10000, {10000, 8000, 6000}, {4000, 30000}},
        {video, SeekMode::PREVIOUS, 1950, -1, {2000}, {-1, 4000}},
        {video, SeekMode::NEXT, 9000, 10000, {10000, 30000}, {8000, -1}},
        {video, SeekMode::NEXT, 30001, -1, {-1}, {30000}},
        {video, SeekMode::CLOSEST_SYNC, 9500, 10000, {8000, 10000}, {6000, 30000, -1}},
        {video, SeekMode::CLOSEST, 9000, 8000, {8000, 4000}, {10000}},
        {audio, SeekMode::PREVIOUS, 5000, 4040, {4000, 4040, 5100, 4444}, {3999, 5101, -1}},
    };
    for (const auto& c : cases) {
        const std::string name = name_of(c.mode) + (" " + std::to_string(c.target_ms));
        EXPECT_EQ(c.points.ideal_us(c.mode, c.target_ms * 1000).value_or(-1000), c.ideal_ms * 1000)
            << name;
        for (const bool good : {true, false}) {
            for (const int64_t ms : good ? c.hits : c.misses) {
                const auto landed =
                    ms < 0 ? std::nullopt : std::optional(DeliveredFrame{ms * 1000, 7});
                EXPECT_EQ(c.points.hit(c.mode, c.target_ms * 1000, landed), good)
                    << name << ": " << ms;
            }
        }
    }
    EXPECT_FALSE(video.hit(SeekMode::PREVIOUS, 9000000, DeliveredFrame{8000000, 8}))
        << "another size";
}

TEST(InspectSyncPoints, TargetsAreEvenAndRepeatable)
{
    SyncPoints points(Kind::AUDIO);
    EXPECT_TRUE(points.targets(3, 1).empty());
    ExpectedFrame frame;
    for (const int64_t ms : {int64_t{-500}, int64_t{-2147483647}, int64_t{2147483647}}) {
        frame.dts_ms = ms;
        points.add(frame);
        const auto targets = points.targets(DeviceOptions::MOST_SEEKS, 1);
        EXPECT_EQ(targets, points.targets(DeviceOptions::MOST_SEEKS, 1));
        EXPECT_TRUE(std::is_sorted(targets.begin(), targets.end()));
        EXPECT_GE(targets.front(), 0);
    }
    const auto targets = points.targets(100, 2);
    const int64_t last = -2147483647000 + (int64_t{2} * 2147483647 * 1000) * 95 / 100;
    EXPECT_LE(targets.back(), last);
    EXPECT_GT(targets.back(), last * 98 / 100);
}

TEST(InspectDevice, Samples)
{
    const struct {
        const char* name;
        std::string audio, video; ///< frames; empty: none
        size_t hits;              ///< of 32; 0: no track that plays
    } cases[] = {
        {"audio_aac", "95 95 0 0 0", "", 32},
        {"audio_speex", "150 150 0 0 0", "", 0},
        {"avc_aac_index", "346 346 0 0 0", "200 200 0 0 0", 32},
        {"avc_bframes_mp3", "194 194 0 0 0", "150 150 0 0 0", 32},
        {"avc_slices", "", "48 48 0 0 0", 32},
        {"h263_mp3", "155 155 0 0 0", "60 60 0 0 0", 32},
        {"screen2_nellymoser", "260 260 0 0 0", "15 15 0 0 0", 0},
    };
    for (const auto& c : cases) {
        const DeviceReport report = run(sample(c.name));
        EXPECT_TRUE(report.opened) << c.name;
        for (const TrackReport* track : {&report.audio, &report.video}) {
            const std::string& frames = track->kind == Kind::AUDIO ? c.audio : c.video;
            EXPECT_EQ(text(track->frames), frames.empty() ? "0 0 0 0 0" : frames) << c.name;
            EXPECT_EQ(track->started(), !frames.empty()) << c.name;
            EXPECT_EQ(track->end.text, "") << c.name;
        }
        const TrackReport* judged = report.seek_track();
        ASSERT_EQ(judged != nullptr, c.hits > 0) << c.name;
        for (size_t i = 0; judged && i < SEEK_MODE_COUNT; ++i) {
            ASSERT_EQ(judged->seeks.size(), SEEK_MODE_COUNT) << c.name;
            EXPECT_EQ(judged->seeks[i].hits(), c.hits) << c.name << i;
            EXPECT_GT(judged->seeks[i].landings.at(5).seek.reads, 0U) << c.name;
        }
    }
}

TEST(InspectDevice, WhatIsNotWhole)
{
    const auto avc = [](const std::vector<Bytes>& bodies) {
        FlvBuilder b = FlvBuilder().header(1).tag(9, 0, SPS_TAG);
        for (const Bytes& body : bodies)
            b.tag(9, 0, body);
        return b.bytes();
    };
    const auto h263 = [](uint8_t flags, const Bytes& audio) {
        FlvBuilder b = FlvBuilder().header(flags);
        return b.tag(9, 0, H263_KEY)
            .tag(8, 0, audio)
            .tag(9, 40, H263_INTER)
            .tag(9, 80, H263_KEY)
            .bytes();
    };
    const Bytes whole = h263(1, PCM_TAG);
    const struct {
        const char* name;
        Bytes file;
        bool opened;
        int audio_index, video_index;
        std::string audio, video;
        bool video_usable;
    } cases[] = {
        {"not the format", hex("00 4C 56 01"), false, -1, -1, "0 0 0 0 0", "0 0 0 0 0", false},
        {"announced and absent", avc({UNIT, UNIT}), true, -1, 0, "0 0 0 0 0", "2 2 0 0 0", true},
        {"5 bytes at the end", avc({UNIT, hex("17 02 00 00 00")}), true, -1, 0, "0 0 0 0 0",
         "1 1 0 0 0", true},
        {"5 bytes in the middle", avc({UNIT, hex("17 02 00 00 00"), UNIT}), true, -1, 0,
         "0 0 0 0 0", "2 1 0 1 0", true},
        {"6 bytes in the middle", avc({UNIT, hex("17 02 00 00 00 00"), UNIT, SPS_TAG, UNIT}), true,
         -1, 0, "0 0 0 0 0", "3 3 0 0 0", true},
        {"a stream that the flags hide", whole, true, -1, 0, "1 0 0 1 0", "3 3 0 0 0", true},
        {"a codec that is not played", h263(5, PCM_TAG), true, 0, 1, "1 1 0 0 0", "3 3 0 0 0",
         true},
        {"the last tag cut", cut(whole, whole.size() - 6), true, -1, 0, "1 0 0 1 0", "3 2 0 1 0",
         true},
        {"the last size missing", cut(whole, whole.size() - 4), true, -1, 0, "1 0 0 1 0",
         "3 2 0 1 0", true},
        {"another codec in the middle",
         FlvBuilder()
             .header(1)
             .tag(9, 0, H263_KEY)
             .tag(9, 40, hex("14 00 01 02"))
             .tag(9, 80, H263_KEY)
             .bytes(),
         true, -1, 0, "0 0 0 0 0", "3 2 1 0 1", true},
    };
    for (const auto& c : cases) {
        const DeviceReport report = run(c.file);
        EXPECT_EQ(report.opened, c.opened) << c.name;
        EXPECT_EQ(report.opened, report.open.text.empty()) << c.name;
        EXPECT_EQ(report.audio.index, c.audio_index) << c.name;
        EXPECT_EQ(report.video.index, c.video_index) << c.name;
        EXPECT_EQ(text(report.audio.frames), c.audio) << c.name;
        EXPECT_EQ(text(report.video.frames), c.video) << c.name;
        EXPECT_EQ(report.video.usable(), c.video_usable) << c.name;
    }
}
