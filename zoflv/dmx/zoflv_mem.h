// SPDX-License-Identifier: Apache-2.0
/// @file
/// Blocks from the plain heap that release themselves, null when there is no memory; and the end of
/// a handle's validity.
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

/// To be called before a handle is freed: a later use by mistake is then refused more often than
/// not. Volatile, since a store to memory that is about to be freed is dropped otherwise.
inline void zoflv_clear_magic(volatile uint32_t* magic)
{
    *magic = 0;
}
