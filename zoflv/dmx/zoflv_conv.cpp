// SPDX-License-Identifier: Apache-2.0
#include "zoflv/dmx/zoflv_conv.h"

#include "zoflv/dmx/zoflv_types.h"

#include <cstddef>
#include <cstring>

namespace {

void reverse(uint8_t* bytes, size_t length)
{
    for (size_t i = 0, j = length; i + 1 < j; ++i) {
        --j;
        const uint8_t byte = bytes[i];
        bytes[i] = bytes[j];
        bytes[j] = byte;
    }
}

void reverse_each(void* values, int count, size_t width)
{
    uint8_t* bytes = static_cast<uint8_t*>(values);
    for (int i = 0; i < count; ++i, bytes += width)
        reverse(bytes, width);
}

} // namespace

void zoflv_conv_u16(void* value)
{
    reverse_each(value, 1, 2);
}

void zoflv_conv_u24(void* value)
{
    reverse_each(value, 1, 3);
}

void zoflv_conv_u32(void* value)
{
    reverse_each(value, 1, 4);
}

void zoflv_conv_u64(void* value)
{
    reverse_each(value, 1, 8);
}

void zoflv_conv_buf_u16(void* values, int count)
{
    reverse_each(values, count, 2);
}

void zoflv_conv_buf_u32(void* values, int count)
{
    reverse_each(values, count, 4);
}

void zoflv_conv_buf_u64(void* values, int count)
{
    reverse_each(values, count, 8);
}

void zoflv_conv_reverse(void* bytes, int length)
{
    if (length >= 2)
        reverse(static_cast<uint8_t*>(bytes), static_cast<size_t>(length));
}

void zoflv_conv(void* bytes, int length)
{
    if (length < 2 || length > 8)
        return; // nothing to reverse, or no such field
    const size_t n = static_cast<size_t>(length);
    uint8_t scratch[8] = {};
    std::memcpy(scratch, bytes, n);
    reverse(scratch, n);
    std::memcpy(bytes, scratch, n);
}

uint64_t zoflv_conv_time(uint64_t t, uint64_t scale)
{
    if (scale == 0)
        return 0;
    return t * static_cast<uint64_t>(ZOFLV_TICKS_PER_SECOND) / scale;
}
