// SPDX-License-Identifier: Apache-2.0
/// @file
/// The parsers of the device library. They never read outside `size` bytes.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zodevice {

struct PictureSize {
    int32_t width;
    int32_t height;
};

/// Results of the video parsers.
constexpr int FOUND = 0;
constexpr int MORE_DATA = 1;
constexpr int BROKEN = -1;

/// The size after cropping, from the first sequence parameter set of start-code form data.
int parse_avc(const uint8_t* data, size_t size, PictureSize* out);
int parse_sorenson_h263(const uint8_t* data, size_t size, PictureSize* out);
int parse_plain_h263(const uint8_t* data, size_t size, PictureSize* out);

/// @return the audio object type of an AudioSpecificConfig, or BROKEN
int parse_audio_specific_config(const uint8_t* data, size_t size);

} // namespace zodevice
