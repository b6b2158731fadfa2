// SPDX-License-Identifier: Apache-2.0
/// @file
/// Stand-in for the device's media-format definitions: extended format keys, MIME texts, and the
/// MIME type of a codec code.
#pragma once

#include <stdint.h>

/// @param fourcc  four characters in memory order, or a WAVE format tag
/// @return constant text, MEDIA_MIMETYPE_UNKNOWN for a code it does not know; never null
extern "C" const char* FourCC2MIME(uint32_t fourcc);

namespace android {

extern const char* AMEDIAFORMAT_KEY_ALLOW_FRAME_REORDERING; // int32, 0 or 1
extern const char* AMEDIAFORMAT_KEY_ERROR_LOGGABLE;         // int32, 0 or 1
extern const char* AMEDIAFORMAT_KEY_ERROR_TYPE;             // int32, 0 when the track is playable
extern const char* AMEDIAFORMAT_KEY_FOURCC;                 // int32
extern const char* AMEDIAFORMAT_KEY_I_FRAME_AVG_INTERVAL;   // int64, microseconds
extern const char* AMEDIAFORMAT_KEY_TRACK_FOURCC; // int32, of a codec that is not supported

extern const char* MEDIA_MIMETYPE_UNKNOWN;
extern const char* MEDIA_MIMETYPE_AUDIO_AAC;
extern const char* MEDIA_MIMETYPE_AUDIO_MPEG;
extern const char* MEDIA_MIMETYPE_AUDIO_UNKNOWN;
extern const char* MEDIA_MIMETYPE_VIDEO_H263;
extern const char* MEDIA_MIMETYPE_VIDEO_H263_SORENSON;
extern const char* MEDIA_MIMETYPE_VIDEO_UNKNOWN;

} // namespace android
