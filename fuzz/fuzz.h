// SPDX-License-Identifier: Apache-2.0
/// @file
/// What the targets share.
#pragma once

#include <cstddef>
#include <cstdint>

/// One input. The bytes lie in a block of exactly `size` bytes.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
