// SPDX-License-Identifier: Apache-2.0
/// @file
/// The outer structure of AVC in FLV: configuration records and the NAL units of a frame.
#pragma once

#include "inspect/walker.h"

#include <cstdint>

namespace zoflv_inspect {

/// An AVCDecoderConfigurationRecord.
struct AvcRecord {
    bool whole = false; ///< all parameter sets lie inside, with a sequence parameter set among them
    uint32_t length_size = 4; ///< bytes of the length before each NAL unit
    View sps{}; ///< the first sequence parameter set, as far as it lies inside; empty: none
};
AvcRecord read_avc_record(const View& record);

/// The NAL units of a frame.
struct UnitFacts {
    bool fit = false;         ///< the lengths fill the payload exactly
    bool start_codes = false; ///< they do not, and it begins with a start code
    uint64_t units = 0;       ///< as far as they fit
    bool idr = false;         ///< a slice of an instantaneous refresh
    bool slices = false;      ///< any slice
    bool recovery = false;    ///< a recovery point message: decoding can begin there too
};
/// @param length_size  1 to 4
UnitFacts read_units(const View& payload, uint32_t length_size);

} // namespace zoflv_inspect
