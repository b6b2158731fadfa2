// SPDX-License-Identifier: Apache-2.0
#include "tests/support/flv_builder.h"

#include <gtest/gtest.h>
#include <zoflv_host/device_control.h>

constexpr int NEVER = 99;

/// Cut at every length: first "more data", then "broken", then the configuration.
TEST(Device, FindsAConfigurationAsSoonAsItIsWhole)
{
    const struct {
        const char* codec; // "": audio
        const char* hex;
        int broken_from, found_from; // lengths
        int32_t width, height;       // width: or the audio profile
    } cases[] = {
        {"h264", "0000000167640028acd94078044fde", 5, 15, 1920, 1080},
        {"avc1", "00000167f4001e91b2323232323232323844260b87e11b405217f1f3a0", 4, 29, 642, 362},
        {"X264", "0000016742001ed000000300080000030036287a0507f4c940", 4, 25, 314, 234},
        {"h264", "0000000168ebe3cb22c0", NEVER, NEVER, 0, 0},
        {"FLV1", "0000840020181300", NEVER, 8, 64, 48},
        {"FLV1", "000084019300", NEVER, 6, 176, 144},
        {"h263", "000080161007", NEVER, 6, 704, 576},
        {"", "f85e0157c040", 0, 6, 34, 0},
        {"", "2b9208", 0, 3, 5, 0},
        {"", "1690", 0, NEVER, 0, 0},
    };
    for (const auto& c : cases) {
        for (int length = 0; length <= static_cast<int>(std::strlen(c.hex) / 2); ++length) {
            SCOPED_TRACE(std::string(c.hex) + ", " + std::to_string(length) + " bytes");
            const Bytes head = cut(hex(c.hex), static_cast<size_t>(length));
            ZO_CONFIG_INPUT in{head.data(), length, 0, {}};
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
