// SPDX-License-Identifier: Apache-2.0
/// @file
/// The picture size in an AVC sequence parameter set, of every profile: what the demuxer should read.
#pragma once

#include "inspect/walker.h"

#include <cstdint>
#include <optional>

namespace zoflv_inspect {

/// Pixels, after cropping.
struct AvcSize {
    int64_t width;
    int64_t height;
};

/// @param sps  a NAL unit as stored, with its header byte and emulation prevention
/// @return nothing when it is no sequence parameter set, is cut, or has no size
std::optional<AvcSize> read_avc_size(const View& sps);

} // namespace zoflv_inspect
