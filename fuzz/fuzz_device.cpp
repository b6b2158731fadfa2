// SPDX-License-Identifier: Apache-2.0
// The device stand-in's parsers. The first byte chooses the codec.
#include "fuzz/fuzz.h"
#include "fuzz/walk.h"

#include <cstring>
#include <zodevice/zo_extractor_common.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static constexpr char codecs[][5] = {"h264", "FLV1", "h263", "none"};

    if (size < 1)
        return 0;
    ZO_CONFIG_INPUT input = {};
    std::memcpy(&input.fourcc, codecs[data[0] % 4], sizeof input.fourcc);
    input.data = data + 1;
    input.length = static_cast<int32_t>(size - 1);
    ZO_VIDEO_CONFIG video = {};
    if (zovid_config_parser(&input, &video) == 0)
        WALK_CHECK(video.width >= 1 && video.height >= 1);
    ZO_AUDIO_CONFIG audio = {};
    zoaud_config_parser(&input, &audio, ZO_AUDIO_CONFIG_SPECIFIC);
    return 0;
}
