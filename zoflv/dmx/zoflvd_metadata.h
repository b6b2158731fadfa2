// SPDX-License-Identifier: Apache-2.0
/// @file
/// The decoder of the `onMetaData` script tag (the public FLV and AMF0 format descriptions).
#pragma once

#include "zoflv/dmx/zocmn_mfal.h"

#include <cstdint>

/// The decoded values, all zero until decoded. Numbers are kept as they are in the file,
/// infinities included; a NaN is stored as 0 except in the two arrays.
struct ZOFLVD_METADATA {
    uint8_t has_keyframes;
    uint8_t has_video;
    uint8_t has_metadata;
    uint8_t has_cue_points;
    uint8_t can_seek_to_end;
    double duration; ///< seconds
    double last_timestamp;
    double last_keyframe_timestamp;
    double file_size; ///< bytes
    double data_size;
    double video_codec_id;
    double width;      ///< pixels
    double height;     ///< pixels
    double frame_rate; ///< frames per second
    double video_data_rate;
    double video_size; ///< bytes of video data
    double audio_codec_id;
    double audio_size;
    double audio_data_rate;
    double audio_delay;
    int32_t keyframe_cnt;      ///< the smaller of the two counts below
    int32_t filepositions_cnt; ///< elements in `filepositions`
    double* filepositions;     ///< file offsets of keyframe tags in bytes; owned
    int32_t times_cnt;         ///< elements in `times`
    double* times;             ///< keyframe times in seconds; owned
};

/// Decodes the tag at `*first_tag_pos` into `md`.
/// @param md        all zero, or a decoded record, whose arrays are then replaced or released;
///                  release it with zoflvd_metadata_deinit()
/// @param next_pos  receives the offset after the tag when it is a script tag with a body
/// @return 0, also when the first tag is no metadata; -3 for malformed or unreadable data; -5 when
///         memory runs out; -6 when the file cannot be positioned
int zoflvd_metadata_init(const _ZOCMN_MFAL* mfal, void* file, const int64_t* first_tag_pos,
                         ZOFLVD_METADATA* md, int64_t* next_pos);

/// Releases the arrays and sets the record to zero. Safe on an all-zero record.
void zoflvd_metadata_deinit(ZOFLVD_METADATA* md);
