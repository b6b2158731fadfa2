// SPDX-License-Identifier: Apache-2.0
/// @file
/// Blocks from the plain heap that release themselves. Null when there is no memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

struct zoflv_free {
    void operator()(void* p) const { std::free(p); }
};

using zoflv_block = std::unique_ptr<uint8_t, zoflv_free>;

/// A block of `size` bytes; one of 0 bytes is a block too.
inline zoflv_block zoflv_alloc(size_t size)
{
    return zoflv_block(static_cast<uint8_t*>(std::malloc(size ? size : 1)));
}

/// The same with every byte 0, for data that is not all written before it is handed on.
inline zoflv_block zoflv_alloc_zeroed(size_t size)
{
    return zoflv_block(static_cast<uint8_t*>(std::calloc(size ? size : 1, 1)));
}
