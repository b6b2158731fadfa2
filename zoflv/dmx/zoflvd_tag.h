// SPDX-License-Identifier: Apache-2.0
/// @file
/// FLV tag headers and the way from tag to tag (the public FLV format description, "FLV tags").
#pragma once

#include "zoflv/dmx/zocmn_mfal.h"
#include "zoflv/dmx/zoflv_types.h"

#include <cstdint>

enum : int {
    ZOFLV_TAG_HEADER = 11,   ///< bytes of a tag header
    ZOFLV_PREV_TAG_SIZE = 4, ///< bytes of the PreviousTagSize field after the data
    ZOFLV_TAG_OVERHEAD = 15, ///< bytes of a tag besides its data: both of the above
};

/// A parsed tag header.
struct ZOFLVD_TAG {
    uint8_t type;       ///< TagType as read
    uint32_t data_size; ///< DataSize, 24 bits: bytes of the tag's data
    int64_t timestamp;  ///< the tag's time in 100-ns units
    uint32_t strm_id;   ///< StreamID, 24 bits, as read
    int64_t pos;        ///< file offset of the TagType byte
    uint32_t kf;        ///< keyframe flag; set by the tag crawler only
    uint32_t found;     ///< 1 when zoflvd_tag_next() stopped at this tag
};

/// Reads the tag header at the file's position and leaves the file at the tag's data.
/// @return 0; 1 when fewer than 11 bytes are left; -1 for a null argument; -3 when the header could
///         not be parsed; -6 when the position could not be taken
int zoflvd_tag_read(const _ZOCMN_MFAL* mfal, void* fh, ZOFLVD_TAG* tag);

/// Goes from `*start` to the first tag of `type` that begins before `*end`, reading headers only.
/// @param max_tags  tags to examine at most; 0 or less: no limit
/// @param tag       receives the tag; its `found` tells whether there was one
/// @return 0 with the file at the tag's data; -1 when there is none; the code of a failed
///         zoflvd_tag_read(). A search that came to `*end` past other tags, or met a header that
///         could not be read, leaves the file at `*end`; one with `*start` >= `*end` does not touch
///         it.
int zoflvd_tag_next(const _ZOCMN_MFAL* mfal, void* fh, const int64_t* start, int type, int max_tags,
                    const int64_t* end, ZOFLVD_TAG* tag);
