// SPDX-License-Identifier: Apache-2.0
/// @file
/// The handles behind zoflvd.h. Only the demuxer and its tests include this.
#pragma once

#include "zoflv/dmx/zocmn_mfal.h"
#include "zoflv/dmx/zoflvd.h"
#include "zoflv/dmx/zoflvd_mblk.h"
#include "zoflv/dmx/zoflvd_metadata.h"
#include "zoflv/dmx/zoflvd_sh.h"
#include "zoflv/dmx/zoflvd_tag.h"

#include <cstddef>
#include <cstdint>

constexpr uint32_t ZOFLVD_MAGIC = 0x464C5646;  ///< 'FLVF'
constexpr uint32_t ZOFLVDS_MAGIC = 0x464C5653; ///< 'FLVS'

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
    int64_t data_start; ///< `first_tag_pos`, or the tag behind it when the first is a script tag
    int64_t file_size;  ///< bytes
    int64_t data_len;   ///< `file_size` - `data_start`; may be negative
    ZOFLVD_METADATA metadata; ///< owned
    ZOFLVD_INFO info;         ///< copy of what the open reported
    int64_t ext_duration;     ///< duration given by the caller, 100-ns units, 0 when none
    int64_t duration;         ///< the file's duration, 100-ns units
};

/// A keyframe index entry.
struct ZOFLVD_KF {
    int64_t time; ///< 100-ns units
    int64_t pos;  ///< file offset of the keyframe's tag
};
static_assert(sizeof(ZOFLVD_KF) == 16, "255 entries to a block");

/// The stream handle. Between calls: `fetch_tag` 0 means that `cur_tag` was found and the file
/// stands on its data; `next_tag.found` 1 that the file stands on the data of `next_tag`.
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

inline bool zoflvd_is_valid(const ZOFLVD* h)
{
    return h && h->magic == ZOFLVD_MAGIC;
}

inline bool zoflvd_has_stream(const ZOFLVD* h, int strm_indx)
{
    return strm_indx >= 0 && strm_indx < h->strm_cnt;
}

inline bool zoflvds_is_valid(const ZOFLVDS* s)
{
    return s && s->magic == ZOFLVDS_MAGIC;
}

/// Builds an index from the metadata's arrays; where that cannot be done it stays empty.
/// @param fh   a file of `mfal`, in which the first keyframe is looked at; its position stays
/// @param idx  empty; released by the caller
/// @return 0; -5 no memory; -6 the byte at the first keyframe could not be read
int zoflvd_kf_build(const ZOFLVD_METADATA* md, const _ZOCMN_MFAL* mfal, void* fh, ZOFLVD_MBLK* idx);

/// Chooses the entry for a seek of zoflvds_seek(): the one at or before the time; mode 1 the one
/// after that; mode 3 the closer of both.
/// @param later  receives whether it is the one after
/// @return 0; 1 mode 1 has no later entry; -3 no entry at or before the time
int zoflvd_kf_choose(const ZOFLVD_MBLK* idx, int64_t time, int mode, ZOFLVD_KF* chosen,
                     bool* later);

/// Writes the index as the table that zoflvds_get_idx_table() gives.
/// @return the number of entries written
uint32_t zoflvd_kf_table(const ZOFLVD_MBLK* idx, uint8_t* out);

/// Orders a time, `*key`, against an index entry, one of those in the block `node`: an entry
/// matches from its time up to the next entry's in the block, both included.
int zoflvd_kf_compare(const void* key, const void* entry, const void* node);

/// An entry's time.
int64_t zoflvd_kf_time(const void* entry);

/// The look ahead that ends a frame read; called by zoflvds_get_frm() alone.
/// @param frm_len  not used
/// @return 0 whether or not a following tag was found; -1 when PreviousTagSize could not be read
int zoflvds_get_frm_finalyze(ZOFLVDS* s, int frm_len, int64_t* next_time);

/// The seek without an index, for modes 0 to 2 of zoflvds_seek(): estimates an offset from the
/// time, goes back from there to a tag before it and crawls to the keyframe. 0 or -1.
int zoflvds_seek_bytestream(ZOFLVDS* s, const int64_t* time, int64_t* out_time, int mode);

constexpr int ZOFLVD_SCAN_WINDOW = 2048; ///< bytes looked at at once

/// Scans the file, which the caller has positioned at `start`, for the first plausible tag header:
/// a known TagType, StreamID 0, and behind the data a PreviousTagSize that fits.
/// @param buf    scratch of ZOFLVD_SCAN_WINDOW bytes
/// @param limit  the tag must end before this offset
/// @param tag    receives `type`, `data_size`, `timestamp` (the milliseconds taken as signed) and
///               `pos`; untouched when nothing is found
/// @return 0 with the file behind the tag's PreviousTagSize; 1 nothing found; -1 failure
int zoflvds_seek_bytestream_tag(const _ZOCMN_MFAL* mfal, void* fh, uint8_t* buf, int64_t start,
                                int64_t limit, ZOFLVD_TAG* tag);

/// The same, looking for headers in the bytes before `scan_end` only.
int zoflvd_scan_bytes(const _ZOCMN_MFAL* mfal, void* fh, uint8_t* buf, int64_t start,
                      int64_t scan_end, int64_t limit, ZOFLVD_TAG* tag);
