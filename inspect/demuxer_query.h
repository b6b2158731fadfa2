// SPDX-License-Identifier: Apache-2.0
/// @file
/// Asks the demuxer itself what it makes of single tags; what it logs goes nowhere.
#pragma once

#include "inspect/walker.h"

#include <cstdint>
#include <vector>

namespace zoflv_inspect {

/// What the demuxer keeps of an onMetaData tag. All zero when it takes the tag for none.
struct ReadMetadata {
    double duration = 0; ///< seconds
    double width = 0;    ///< pixels
    double height = 0;
    std::vector<double> times;         ///< keyframe index: seconds
    std::vector<double> filepositions; ///< bytes
};
ReadMetadata ask_metadata(const View& body);

/// What the demuxer makes of a stream whose first tag is this one, in a file without metadata.
struct ReadStream {
    bool opened = false;
    int32_t width = 0; ///< video, pixels
    int32_t height = 0;
    int32_t sample_rate = 0; ///< audio, Hz
    int32_t channels = 0;
    int32_t codec_data_size = 0; ///< bytes
};
/// @param type  TAG_AUDIO or TAG_VIDEO
ReadStream ask_stream(uint8_t type, const View& body);

} // namespace zoflv_inspect
