// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <zoflv_host/buffer_group.h>
#include <zoflv_host/data_source.h>
#include <zoflv_host/device_control.h>
#include <zoflv_host/format.h>

#include <cstring>
#include <thread>

using namespace zoflv_host;
using Bytes = std::vector<uint8_t>;

static Bytes from_hex(const std::string& text)
{
    Bytes out;
    for (size_t i = 0; i + 1 < text.size(); i += 2)
        out.push_back(static_cast<uint8_t>(std::stoi(text.substr(i, 2), nullptr, 16)));
    return out;
}

constexpr int NEVER = 99;
/// Cut at every length: first "more data", then "broken", then the configuration.
TEST(Device, FindsAConfigurationAsSoonAsItIsWhole)
{
    struct Case {
        const char* name;
        const char* codec; // "": audio
        const char* hex;
        int broken_from, found_from; // lengths
        int32_t width, height;       // width: or the audio profile
    };
    const Case cases[] = {
        {"fields", "h264", "0000000167640028acd94078044fde", 5, 15, 1920, 1080},
        {"4:4:4, lists", "avc1", "00000167f4001e91b2323232323232323844260b87e11b405217f1f3a0", 4,
         29, 642, 362},
        {"emulation", "X264", "0000016742001ed000000300080000030036287a0507f4c940", 4, 25, 314,
         234},
        {"no parameter set", "h264", "0000000168ebe3cb22c0", NEVER, NEVER, 0, 0},
        {"Sorenson 8-bit", "FLV1", "0000840020181300", NEVER, 8, 64, 48},
        {"Sorenson 16-bit", "FLV1", "0000800081f400c81300", NEVER, 10, 1000, 400},
        {"Sorenson fixed", "FLV1", "000084019300", NEVER, 6, 176, 144},
        {"Sorenson code 7", "FLV1", "000084039300", 6, NEVER, 0, 0},
        {"Sorenson version 2", "FLV1", "000088019300", 6, NEVER, 0, 0},
        {"Sorenson no width", "FLV1", "0000800000181300", 8, NEVER, 0, 0},
        {"plain", "h263", "000080161007", NEVER, 6, 704, 576},
        {"plain extended", "s263", "000080161c07", 6, NEVER, 0, 0},
        {"unknown codec", "vp6 ", "0000", 0, NEVER, 0, 0},
        {"AAC LC", "", "1210", 0, 2, 2, 0},
        {"escapes", "", "f85e0157c040", 0, 6, 34, 0},
        {"SBR", "", "2b9208", 0, 3, 5, 0},
        {"reserved rate", "", "1690", 0, NEVER, 0, 0},
    };
    for (const Case& c : cases) {
        const Bytes whole = from_hex(c.hex);
        for (int length = 0; length <= static_cast<int>(whole.size()); ++length) {
            SCOPED_TRACE(std::string(c.name) + ", " + std::to_string(length) + " bytes");
            const Bytes cut(whole.begin(), whole.begin() + length);
            ZO_CONFIG_INPUT in{cut.data(), length, 0, {}};
            ZO_VIDEO_CONFIG video{};
            ZO_AUDIO_CONFIG audio{};
            std::memcpy(&in.fourcc, c.codec, std::strlen(c.codec));
            const int rc = *c.codec ? zovid_config_parser(&in, &video)
                                    : zoaud_config_parser(&in, &audio, ZO_AUDIO_CONFIG_SPECIFIC);
            const bool found = length >= c.found_from;
            EXPECT_EQ((rc > 0) - (rc < 0), found ? 0 : length >= c.broken_from ? -1 : 1);
            EXPECT_EQ(*c.codec ? video.width : audio.profile, found ? c.width : 0);
            EXPECT_EQ(video.height, found ? c.height : 0);
        }
    }
}

TEST(BufferGroup, MakesTheReaderWaitUntilABufferIsBack)
{
    BufferGroup group;
    android::CMediaBuffer* first = nullptr;
    android::CMediaBuffer* second = nullptr;
    EXPECT_EQ(group.acquire(&first, false, 0), AMEDIA_ERROR_UNKNOWN) << "no buffers at all";
    group.add_buffer(8);
    ASSERT_EQ(group.acquire(&first, false, 8), AMEDIA_OK);
    EXPECT_EQ(group.acquire(&second, false, 9), AMEDIA_ERROR_UNKNOWN) << "none that large";
    EXPECT_EQ(group.acquire(&second, true, 0), AMEDIA_ERROR_UNKNOWN) << "would wait";
    std::atomic<bool> released{false};
    std::thread reader([&] {
        EXPECT_EQ(group.acquire(&second, false, 0), AMEDIA_OK);
        EXPECT_TRUE(released) << "got a buffer that was out";
    });
    first->set_range(first->handle, 2, 3);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    released = true;
    first->release(first->handle);
    reader.join();
    EXPECT_EQ(second, first);
    EXPECT_EQ(second->range_length(second->handle), 8u);
    second->release(second->handle);
}

TEST(Format, CopiesWhatItIsGiven)
{
    Format from;
    Format to;
    Bytes bytes = {1, 2, 3};
    AMediaFormat_setBuffer(from.get(), "b", bytes.data(), bytes.size());
    AMediaFormat_setInt32(from.get(), "n", 7);
    AMediaFormat_setInt64(to.get(), "gone", 1);
    AMediaFormat_copy(to.get(), from.get());
    bytes[0] = 9;
    AMediaFormat_setInt64(from.get(), "n", 8);
    EXPECT_EQ(to.text(), "b: buffer(010203), n: int32(7)");
    EXPECT_FALSE(from.int32("n")) << "of another type now";
}

TEST(DataSource, DeliversUpToTheEndAndTheFaultsAskedFor)
{
    const MemoryFaults none, short_once{2, 4}, short_on{2, 0, 0, true}, failure{0, 0, 2};
    const struct {
        MemoryFaults faults;
        off64_t offset;
        std::vector<ssize_t> results; // of reads of 6 of the 10 bytes
    } cases[] = {{none, 0, {6, 6}},        {none, 7, {3}},          {none, 10, {0}},
                 {none, INT64_MAX, {0}},   {none, -1, {-1}},        {short_once, 0, {6, 4, 6}},
                 {short_on, 0, {6, 0, 0}}, {failure, 0, {6, -1, 6}}};
    for (const auto& c : cases) {
        MemoryDataSource source(Bytes(10), c.faults);
        uint8_t to[6];
        for (const ssize_t want : c.results)
            EXPECT_EQ(source.record()->readAt(source.record()->handle, c.offset, to, 6), want);
        EXPECT_EQ(source.reads(), c.results.size());
    }
}
