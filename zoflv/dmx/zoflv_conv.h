// SPDX-License-Identifier: Apache-2.0
/// @file
/// Byte order: the values of big-endian fields; reversals in place and the conversion of times.
///
/// All work on the bytes themselves, so they do the same on every host. The demuxer reads values;
/// the reversals and zoflv_conv_time() complete the module, and nothing here but tests calls them.
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

// Values of big-endian fields as they are in a file.

inline uint32_t zoflv_be16(const uint8_t* bytes)
{
    return uint32_t{bytes[0]} << 8 | bytes[1];
}

inline uint32_t zoflv_be24(const uint8_t* bytes)
{
    return zoflv_be16(bytes) << 8 | bytes[2];
}

inline uint32_t zoflv_be32(const uint8_t* bytes)
{
    return zoflv_be16(bytes) << 16 | zoflv_be16(bytes + 2);
}

/// A field of `count` bytes, 0 to 8.
inline uint64_t zoflv_be(const uint8_t* bytes, int count)
{
    if (count == 4) // most fields of a size that the file tells
        return zoflv_be32(bytes);
    uint64_t value = 0;
    for (int i = 0; i < count; ++i)
        value = value << 8 | bytes[i];
    return value;
}
