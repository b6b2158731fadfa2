// SPDX-License-Identifier: Apache-2.0
/// @file
/// The Sorenson H.263 picture header (H263VIDEOPACKET of the public FLV format description).
#pragma once

#include "zoflv/dmx/zoflvd_rdbuf.h"

#include <cstdint>

struct ZOFLVD_H263_HDR {
    uint32_t width;        ///< pixels; stored, as `height`, only when the whole header was read
    uint32_t height;       ///< pixels
    uint32_t deblocking;   ///< DeblockingFlag
    uint32_t quantizer;    ///< Quantizer
    uint32_t temporal_ref; ///< TemporalReference
    uint32_t picture_type; ///< PictureType: 0 intra, 1 inter, 2 disposable inter
    uint32_t valid;        ///< 1 once the fixed fields are read
    uint32_t rsvd;         ///< 0
};

/// Reads one picture header from `rb` into `hdr`, which the caller has zeroed.
/// @return 0, or -1 when it is no such header, is cut short or has an unknown version
int zoflvd_h263_read(ZOFLVD_RDBUF* rb, ZOFLVD_H263_HDR* hdr);
