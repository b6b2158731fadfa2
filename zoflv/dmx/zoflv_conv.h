// SPDX-License-Identifier: Apache-2.0
/// @file
/// Byte-order helpers for big-endian file fields that were read raw, and the time conversion.
///
/// The reversals work in place on the bytes themselves, so they do the same on every host: a
/// big-endian field becomes a little-endian one, which zoflv_le32() turns into a value.
#pragma once

#include <cstdint>

void zoflv_conv_u16(void* value); ///< reverses 2 bytes
void zoflv_conv_u24(void* value); ///< reverses 3 bytes, the first three of a zeroed 32-bit value
void zoflv_conv_u32(void* value); ///< reverses 4 bytes
void zoflv_conv_u64(void* value); ///< reverses 8 bytes

/// Reverse each of `count` values; a count below 1 does nothing.
void zoflv_conv_buf_u16(void* values, int count);
void zoflv_conv_buf_u32(void* values, int count);
void zoflv_conv_buf_u64(void* values, int count);

/// Reverses the first `length` bytes; a length below 2 does nothing.
void zoflv_conv_reverse(void* bytes, int length);

/// Reverses the first `length` bytes, 0 to 8, through a scratch value; other lengths do nothing.
void zoflv_conv(void* bytes, int length);

/// A count of 1/`scale` seconds in 100-ns units: t * 10,000,000 / scale, the product modulo 2^64.
/// A scale of 0 gives 0.
uint64_t zoflv_conv_time(uint64_t t, uint64_t scale);

/// The value of four bytes stored least significant first.
inline uint32_t zoflv_le32(const uint8_t* bytes)
{
    return uint32_t{bytes[0]} | uint32_t{bytes[1]} << 8 | uint32_t{bytes[2]} << 16 |
           uint32_t{bytes[3]} << 24;
}
