// SPDX-License-Identifier: Apache-2.0
/// @file
/// The codec header record of a stream and the readers that fill it from the stream's first tags.
#pragma once

#include "zoflv/dmx/zocmn_mfal.h"
#include "zoflv/dmx/zoflv_types.h"
#include "zoflv/dmx/zoflvd_metadata.h"

#include <cstdint>

/// One stream's header record, all zero but `strm_type` before zoflvd_sh_init(). The first nine
/// fields are laid out as ZOFLVD_INFO_VID and ZOFLVD_INFO_AUD; slots with two names serve video
/// under the first and audio under the second.
struct ZOFLVD_SH {
    int32_t strm_indx;    ///< index in the demuxer's stream table
    uint32_t fourcc;      ///< codec code, 0 when unknown
    int32_t max_frm_size; ///< bytes: video one 4:2:0 picture, audio one second
    union {
        int32_t width;       ///< pixels
        int32_t sample_rate; ///< Hz
    };
    union {
        int32_t height;          ///< pixels
        int32_t bits_per_sample; ///< 8 or 16
    };
    union {
        int32_t frm_cnt;  ///< frames, computed from the metadata
        int32_t channels; ///< channel count
    };
    int32_t valid;     ///< 1 once the codec was recognised
    int32_t byte_rate; ///< average bytes per second
    union {
        int32_t frame_rate; ///< frames per second, truncated
        int32_t bit_rate;   ///< bits per second; MPEG audio only, else 0
    };
    uint32_t fourcc_out;       ///< copy of `fourcc`, written on success
    uint8_t strm_type;         ///< FLV tag type of the stream: 9 video, 8 audio
    int64_t duration;          ///< 100-ns units
    uint8_t* csd;              ///< codec-specific data, a heap block owned by the record, or null
    int32_t csd_size;          ///< bytes at `csd`
    int64_t first_tag_pos;     ///< file offset of the first tag from which frames are read
    int64_t data_start;        ///< file offset where the stream's tag data starts
    int64_t data_len;          ///< bytes from `data_start` to the end of the file; may be negative
    int64_t file_size;         ///< bytes
    int32_t h264_frm_len_size; ///< AVC: bytes of the length field before each NAL unit, 1 to 4
};

/// What the readers are told of the file.
struct ZOFLVD_SH_FILE {
    int64_t first_tag_pos;           ///< file offset of the first tag
    int64_t data_start;              ///< file offset of the first tag after the metadata
    int64_t data_len;                ///< `file_size` - `data_start`
    int64_t file_size;               ///< bytes
    int64_t duration;                ///< of the file, 100-ns units, 0 while it is not known
    const ZOFLVD_METADATA* metadata; ///< borrowed
};

/// Finds the stream's first tag(s) and fills `sh` from them and from what is known of the file.
/// @param file        an open file of `mfal`; its position is left wherever the reading ended
/// @param fourcc_out  receives the codec code on success; may be null
/// @return 0 or -1; a failure leaves no `csd`
int zoflvd_sh_init(ZOFLVD_SH* sh, const _ZOCMN_MFAL* mfal, void* file, const ZOFLVD_SH_FILE* in,
                   int strm_indx, uint32_t* fourcc_out);

/// Raises `max_frm_size` of an audio or video stream to `frm_size` bytes. Completes the record: the
/// demuxer does not learn of larger frames, and only tests call this.
void zoflvd_sh_upd(ZOFLVD_SH* sh, int32_t frm_size);
