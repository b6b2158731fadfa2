// SPDX-License-Identifier: Apache-2.0
/// @file
/// Names of what FLV files carry.
#pragma once

#include "inspect/tag.h"

#include <cstdint>
#include <string>

namespace zoflv_inspect {

/// The name of a CodecID or SoundFormat, 0 to 15; numbers that nobody has given a meaning are
/// "reserved".
const char* video_codec_name(uint8_t codec_id);
const char* audio_codec_name(uint8_t sound_format);

/// Whether the published FLV format, version 10.1, has the codec. What has a FourCC is not among
/// them.
bool is_flv_10_1(bool video, const Codec& codec);

/// The codec of a FourCC; null when it is not known.
const char* fourcc_name(uint32_t fourcc);
/// The four characters; those that are not printable ASCII as \xNN.
std::string fourcc_text(uint32_t fourcc);

/// The codec by name: "H.264", "AAC", "H.265 (hvc1)", "unknown (abcd)".
std::string codec_name(bool video, const Codec& codec);

/// What FrameType 1 to 5 means; "reserved" for the others.
const char* frame_type_name(uint8_t frame_type);
const char* packet_name(Packet packet);
/// "right", "missing", "zero", "body", "plus 4", "plus 15", "other".
const char* link_name(Link link);
/// "audio", "video", "script"; "type N" has no name here: null.
const char* tag_type_name(uint8_t type);

/// Samples per second of SoundRate 0 to 3: 5512 (5512.5), 11025, 22050, 44100; 0 for others.
uint32_t sound_rate_hz(uint8_t rate_code);
/// Samples per second of an AAC sampling frequency index; 0 for 13 to 15.
uint32_t aac_rate_hz(uint8_t index);
/// "AAC LC", "HE-AAC" and the like; null for object types that are not known.
const char* aac_object_name(uint8_t object_type);

/// The profile of an AVC sequence parameter set, null when it is not known.
/// @param constraints  the byte after profile_idc: constraint_set0_flag is its highest bit
const char* avc_profile_name(uint8_t profile_idc, uint8_t constraints);
/// "3.1", "1b"; level_idc as it is when it is no level.
std::string avc_level_name(uint8_t profile_idc, uint8_t constraints, uint8_t level_idc);

} // namespace zoflv_inspect
