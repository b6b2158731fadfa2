// SPDX-License-Identifier: Apache-2.0
/// @file
/// The stream handle, and what its sources call of each other. Only the demuxer and its tests
/// include this.
#pragma once

#include "zoflv/dmx/zocmn_mfal.h"
#include "zoflv/dmx/zoflvd.h"
#include "zoflv/dmx/zoflvd_mblk.h"
#include "zoflv/dmx/zoflvd_sh.h"
#include "zoflv/dmx/zoflvd_tag.h"

#include <cstdint>

constexpr uint32_t ZOFLVDS_MAGIC = 0x464C5653; ///< 'FLVS'

/// The stream handle. Between calls: `fetch_tag` 0 means that `cur_tag` was found and the file
/// is at its data; `next_tag.found` 1 that the file is at the data of `next_tag`.
struct ZOFLVDS {
    uint32_t magic;      ///< ZOFLVDS_MAGIC once the open has succeeded
    ZOFLVDS* self;       ///< the handle's own address
    ZOFLVD_SH sh;        ///< copy of the demuxer's record, with a `csd` of its own
    void* fh;            ///< file opened for this stream alone; owned
    ZOFLVD_MBLK idx;     ///< keyframe index of ZOFLVD_KF; owned
    _ZOCMN_MFAL mfal;    ///< copy of the demuxer's record
    ZOFLVD_TAG cur_tag;  ///< the frame being read or last read
    ZOFLVD_TAG next_tag; ///< the stream's following tag, read ahead
    int32_t fetch_tag;   ///< 1: the next read moves to the following tag; 0: `cur_tag` is pending
};

inline bool zoflvds_is_valid(const ZOFLVDS* s)
{
    return s && s->magic == ZOFLVDS_MAGIC;
}

/// The look ahead that ends a frame read; called by zoflvds_get_frm() alone.
/// @param frm_len  not used
/// @return 0 whether or not a following tag was found; -1 when PreviousTagSize could not be read
int zoflvds_get_frm_finalyze(ZOFLVDS* s, int frm_len, int64_t* next_time);

/// The seek without an index, for modes 0 to 2 of zoflvds_seek(): estimates an offset from the
/// time, goes back from there to a tag before it and crawls to the keyframe. 0 or -1.
int zoflvds_seek_bytestream(ZOFLVDS* s, const int64_t* time, int64_t* out_time, int mode);
