// SPDX-License-Identifier: Apache-2.0
/// @file
/// The search for a tag header in the bytes, from any offset of a file.
#pragma once

#include "zoflv/dmx/zocmn_mfal.h"
#include "zoflv/dmx/zoflvd_tag.h"

#include <cstdint>

constexpr int ZOFLVD_SCAN_WINDOW = 2048; ///< bytes looked at at once

/// Scans the file, which the caller has positioned at `start`, for the first plausible tag header:
/// a known TagType, StreamID 0, and after the data a PreviousTagSize that fits.
/// @param buf    scratch of ZOFLVD_SCAN_WINDOW bytes
/// @param limit  the tag must end before this offset
/// @param tag    receives `type`, `data_size`, `timestamp` (the milliseconds taken as signed) and
///               `pos`; untouched when nothing is found
/// @return 0 with the file after the tag's PreviousTagSize; 1 nothing found; -1 failure
int zoflvds_seek_bytestream_tag(const _ZOCMN_MFAL* mfal, void* fh, uint8_t* buf, int64_t start,
                                int64_t limit, ZOFLVD_TAG* tag);

/// The same, looking for headers in the bytes before `scan_end` only.
int zoflvd_scan_bytes(const _ZOCMN_MFAL* mfal, void* fh, uint8_t* buf, int64_t start,
                      int64_t scan_end, int64_t limit, ZOFLVD_TAG* tag);
