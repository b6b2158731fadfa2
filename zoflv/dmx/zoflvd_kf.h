// SPDX-License-Identifier: Apache-2.0
/// @file
/// The keyframe index of a stream: a block list of its entries, in the order of the metadata.
#pragma once

#include "zoflv/dmx/zocmn_mfal.h"
#include "zoflv/dmx/zoflvd_mblk.h"
#include "zoflv/dmx/zoflvd_metadata.h"

#include <cstdint>

/// A keyframe index entry.
struct ZOFLVD_KF {
    int64_t time; ///< 100-ns units
    int64_t pos;  ///< file offset of the keyframe's tag
};
static_assert(sizeof(ZOFLVD_KF) == 16, "255 entries to a block");

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
