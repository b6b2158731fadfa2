// SPDX-License-Identifier: Apache-2.0
/// @file
/// CRC-32 for the builds of other machines, not all of which have a package of zlib. The files that
/// their output is compared with were written with the real one.
#pragma once

#include <cstddef>

using uLong = unsigned long;

inline uLong crc32_z(uLong crc, const unsigned char* bytes, size_t size)
{
    crc ^= 0xFFFFFFFF;
    for (size_t i = 0; i < size; ++i) {
        crc ^= bytes[i];
        for (int bit = 0; bit < 8; ++bit)
            crc = crc & 1 ? crc >> 1 ^ 0xEDB88320 : crc >> 1;
    }
    return crc ^ 0xFFFFFFFF;
}
