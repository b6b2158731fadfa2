// SPDX-License-Identifier: Apache-2.0
/// @file
/// The codec codes that the device knows.
#pragma once

#include <cstdint>

namespace zodevice {

/// The code of four characters, whose bytes have memory order on every host.
constexpr uint32_t fourcc(const char (&text)[5])
{
    constexpr bool big_endian = __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__;
    uint32_t code = 0;
    for (int i = 0; i < 4; ++i)
        code = code << 8 | static_cast<uint8_t>(text[big_endian ? i : 3 - i]);
    return code;
}

constexpr uint32_t FLV1 = fourcc("FLV1"); // Sorenson's variant
constexpr uint32_t H263_CODES[] = {fourcc("s263"), fourcc("S263"), fourcc("h263"), fourcc("H263")};
constexpr uint32_t AVC_CODES[] = {fourcc("h264"), fourcc("H264"), fourcc("x264"),
                                  fourcc("X264"), fourcc("avc1"), fourcc("AVC1")};
// The last is AAC's WAVE format tag.
constexpr uint32_t AAC_CODES[] = {fourcc("MP4A"), fourcc("mp4a"), 0xFF};
// The WAVE format tags of layer 3 and of MPEG audio in general.
constexpr uint32_t MPEG_AUDIO_CODES[] = {0x55, 0x50};

template <typename Codes>
constexpr bool is_one_of(uint32_t code, const Codes& codes)
{
    for (const uint32_t one : codes) {
        if (one == code)
            return true;
    }
    return false;
}

} // namespace zodevice
