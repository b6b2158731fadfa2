// SPDX-License-Identifier: Apache-2.0
/// @file
/// The words that the demuxer and its users share: units, stream types, seek modes, codec codes and
/// the entry of an index table. zoflvd.h includes it.
#pragma once

#include <cstdint>

constexpr int64_t ZOFLV_TICKS_PER_SECOND = 10000000; ///< 100-ns units in a second
constexpr int64_t ZOFLV_TICKS_PER_MS = 10000; ///< and in a millisecond, the unit of a tag's time

/// TagType values. A stream has the type of its tags: audio or video.
enum : int {
    ZOFLV_TAG_AUDIO = 8,
    ZOFLV_TAG_VIDEO = 9,
    ZOFLV_TAG_SCRIPT = 18,
};

/// What a seek looks for.
enum : int {
    ZOFLV_SEEK_PREVIOUS = 0, ///< the keyframe at or before the time
    ZOFLV_SEEK_NEXT = 1,     ///< the first keyframe after the time (without an index: at or after
                             ///< it); without a time: after the current frame
    ZOFLV_SEEK_BACK = 2,     ///< as PREVIOUS; without a time: the one before the current frame
    ZOFLV_SEEK_CLOSEST = 3,  ///< the keyframe closest to the time, the earlier of two
};

/// A codec code of four characters, whose bytes have that order in memory on every host.
constexpr uint32_t zoflv_fourcc(const char (&code)[5])
{
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    constexpr int at[] = {24, 16, 8, 0};
#else
    constexpr int at[] = {0, 8, 16, 24};
#endif
    uint32_t value = 0;
    for (int i = 0; i < 4; ++i)
        value |= uint32_t{static_cast<unsigned char>(code[i])} << at[i];
    return value;
}

/// The codec codes of streams; 0 is a stream whose codec has none.
enum : uint32_t {
    // video, by CodecID from 0 on
    ZOFLV_FOURCC_UNKNOWN = zoflv_fourcc("unkn"),
    ZOFLV_FOURCC_JPEG = zoflv_fourcc("jpeg"),
    ZOFLV_FOURCC_H263 = zoflv_fourcc("FLV1"), ///< Sorenson H.263
    ZOFLV_FOURCC_SCREEN = zoflv_fourcc("scrn"),
    ZOFLV_FOURCC_VP6 = zoflv_fourcc("vp6 "),
    ZOFLV_FOURCC_VP6_ALPHA = zoflv_fourcc("vp6a"),
    ZOFLV_FOURCC_SCREEN_2 = zoflv_fourcc("scr2"),
    ZOFLV_FOURCC_H264 = zoflv_fourcc("h264"), ///< AVC
    // audio, by SoundFormat
    ZOFLV_FOURCC_PCM = zoflv_fourcc("lpcm"), ///< in the encoder's byte order
    ZOFLV_FOURCC_ADPCM = zoflv_fourcc("apcm"),
    ZOFLV_FOURCC_MPEG_AUDIO = 0x55,             ///< WAVE format tag of MPEG layer 3 audio
    ZOFLV_FOURCC_PCM_LE = zoflv_fourcc("llpc"), ///< little-endian
    ZOFLV_FOURCC_NELLY_16K = zoflv_fourcc("nm16"),
    ZOFLV_FOURCC_NELLY_8K = zoflv_fourcc("nm8,"),
    ZOFLV_FOURCC_NELLY = zoflv_fourcc("nm  "),
    ZOFLV_FOURCC_ALAW = zoflv_fourcc("alaw"),
    ZOFLV_FOURCC_MULAW = zoflv_fourcc("mlaw"),
    ZOFLV_FOURCC_AAC = 0xFF, ///< WAVE format tag of AAC
    ZOFLV_FOURCC_SPEEX = zoflv_fourcc("spx,"),
    ZOFLV_FOURCC_DEVICE = zoflv_fourcc("dvsp"), ///< device-specific
};

/// An entry of the table that zoflvd_get_idx_table() writes.
struct ZOFLVD_IDX_ENTRY {
    uint32_t zero;   ///< 0
    uint32_t unused; ///< left as it was in the caller's buffer
    int64_t time;    ///< 100-ns units
};
static_assert(sizeof(ZOFLVD_IDX_ENTRY) == 16, "the same on every host");
