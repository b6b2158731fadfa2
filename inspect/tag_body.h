// SPDX-License-Identifier: Apache-2.0
/// @file
/// The first bytes of audio and video bodies.
#pragma once

#include "inspect/tag.h"

#include <cstddef>
#include <cstdint>

namespace zoflv_inspect {

/// Bytes of a body that read_body_info() looks at.
constexpr size_t BODY_HEAD_SIZE = 32;

/// @param type  TagType without reserved and filter bits
/// @param head  the body's first bytes, at most BODY_HEAD_SIZE; what lies beyond `size` is missing
BodyInfo read_body_info(uint8_t type, const uint8_t* head, size_t size);

} // namespace zoflv_inspect
