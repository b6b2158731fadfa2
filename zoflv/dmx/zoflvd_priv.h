// SPDX-License-Identifier: Apache-2.0
/// @file
/// The demuxer handle. Only the demuxer and its tests include this.
#pragma once

#include "zoflv/dmx/zocmn_mfal.h"
#include "zoflv/dmx/zoflvd.h"
#include "zoflv/dmx/zoflvd_metadata.h"
#include "zoflv/dmx/zoflvd_sh.h"

#include <cstdint>

constexpr uint32_t ZOFLVD_MAGIC = 0x464C5646; ///< 'FLVF'

/// The demuxer handle. After the open only `info.duration` changes.
struct ZOFLVD {
    uint32_t magic;                  ///< ZOFLVD_MAGIC once the open has succeeded
    ZOFLVD* self;                    ///< the handle's own address
    _ZOCMN_MFAL mfal;                ///< copy of the caller's record
    int32_t strm_cnt;                ///< 0 to 2
    int32_t aud_cnt;                 ///< 0 or 1
    int32_t vid_cnt;                 ///< 0 or 1
    ZOFLVD_SH sh[ZOFLV_MAX_STREAMS]; ///< in order of discovery; owns each `csd`
    int64_t first_tag_pos;           ///< file offset of the first tag: DataOffset + 4
    int64_t data_start; ///< `first_tag_pos`, or the tag after it when the first is a script tag
    int64_t file_size;  ///< bytes
    int64_t data_len;   ///< `file_size` - `data_start`; may be negative
    ZOFLVD_METADATA metadata; ///< owned
    ZOFLVD_INFO info;         ///< copy of what the open reported
    int64_t ext_duration;     ///< duration given by the caller, 100-ns units, 0 when none
    int64_t duration;         ///< the file's duration, 100-ns units
};

inline bool zoflvd_is_valid(const ZOFLVD* h)
{
    return h && h->magic == ZOFLVD_MAGIC;
}

inline bool zoflvd_has_stream(const ZOFLVD* h, int strm_indx)
{
    return strm_indx >= 0 && strm_indx < h->strm_cnt;
}
