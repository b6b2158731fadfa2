// SPDX-License-Identifier: Apache-2.0
/// @file
/// A bounded big-endian read cursor over a block read from the file.
///
/// Every read is tested against the end of the block. Results are 0, or -1 for a failed bound or
/// argument check, which leaves the cursor where it was. A null out-pointer skips the value.
#pragma once

#include "zoflv/dmx/zocmn_mfal.h"
#include "zoflv/dmx/zoflv_conv.h"
#include "zoflv/dmx/zoflv_err.h"

#include <cstddef>
#include <cstdint>

struct ZOFLVD_RDBUF {
    uint32_t bit_pos;    ///< bits of the byte at `cur` already read, 0 to 7; only bits() uses it
    const uint8_t* base; ///< first byte of the block, which belongs to the caller
    const uint8_t* cur;  ///< next byte to read
    const uint8_t* end;  ///< one past the last byte
    uint32_t size;       ///< bytes in the block
};

// What tag headers are read with is inline: there the compiler sees the block's size, and that no read
// within it fails. The failures are not.

/// Logs what zoflvd_rdbuf_init() says of a block that could not be filled.
int zoflvd_rdbuf_not_filled();
/// Log the failed checks of those functions, and give -1.
int zoflvd_rdbuf_past_end();
int zoflvd_rdbuf_no_int24();

/// Fills `block` with exactly `size` bytes from the file's position and sets the cursor up over it.
/// @param block  the caller's memory, at least `size` bytes, kept alive while `rb` is used
/// @param clear  non-zero: clear all fields first
/// @return 0, or 1 when the file yields another count than `size` (all fields are then zero and the
///         file's position has moved by what was read)
inline int zoflvd_rdbuf_init(ZOFLVD_RDBUF* rb, void* block, int size, const _ZOCMN_MFAL* mfal,
                             void* fh, int clear)
{
    if (clear)
        *rb = ZOFLVD_RDBUF{};
    if (mfal->read(fh, block, size) != size || size < 0) {
        *rb = ZOFLVD_RDBUF{};
        return zoflvd_rdbuf_not_filled();
    }
    rb->size = static_cast<uint32_t>(size);
    rb->base = static_cast<const uint8_t*>(block);
    rb->bit_pos = 0;
    rb->cur = rb->base;
    rb->end = rb->base + rb->size;
    return ZOFLV_OK;
}

/// Skips the next `n` bytes and gives their address, which may be null when `n` is 0; false
/// with its line when so many are not left.
inline bool zoflvd_rdbuf_take(ZOFLVD_RDBUF* rb, size_t n, const uint8_t** bytes)
{
    if (rb->cur >= rb->end ? n > 0 : n > static_cast<size_t>(rb->end - rb->cur)) {
        zoflvd_rdbuf_past_end();
        return false;
    }
    *bytes = rb->cur;
    rb->cur += n;
    return true;
}

/// Does nothing: the block is the caller's. The counterpart of the set-up, without a caller but
/// tests.
void zoflvd_rdbuf_deinit(ZOFLVD_RDBUF* rb);

/// 1 at the end of the block, else 0.
int zoflvd_rdbuf_eob(const ZOFLVD_RDBUF* rb);

/// Copies `count` >= 0 bytes to `dst` (null: skips them).
int zoflvd_rdbuf_read(ZOFLVD_RDBUF* rb, void* dst, int count);

/// Moves back by `count` bytes, at most to the start of the block; a count below 1 goes to the
/// start. Always 0.
int zoflvd_rdbuf_rewind(ZOFLVD_RDBUF* rb, int count);

inline int zoflvd_rdbuf_byte(ZOFLVD_RDBUF* rb, uint8_t* out)
{
    const uint8_t* p = nullptr;
    if (!zoflvd_rdbuf_take(rb, 1, &p))
        return ZOFLV_ERR_FAIL;
    if (out)
        *out = p[0];
    return ZOFLV_OK;
}

/// The next `n` bits, 1 to 32, most significant first, right-aligned in `out`.
int zoflvd_rdbuf_bits(ZOFLVD_RDBUF* rb, int n, uint32_t* out);

/// The same; whether they were there.
inline bool zoflvd_rdbuf_get_bits(ZOFLVD_RDBUF* rb, int n, uint32_t* out)
{
    return zoflvd_rdbuf_bits(rb, n, out) == 0;
}

int zoflvd_rdbuf_int16(ZOFLVD_RDBUF* rb, uint16_t* out);

/// `out` is required: a null one gives -1.
inline int zoflvd_rdbuf_int24(ZOFLVD_RDBUF* rb, uint32_t* out)
{
    if (!out)
        return ZOFLV_ERR_FAIL;
    const uint8_t* p = nullptr;
    if (!zoflvd_rdbuf_take(rb, 3, &p))
        return zoflvd_rdbuf_no_int24();
    *out = zoflv_be24(p);
    return ZOFLV_OK;
}

int zoflvd_rdbuf_int32(ZOFLVD_RDBUF* rb, uint32_t* out);

/// An AMF0 string: a 16-bit length and that many bytes, no terminator.
/// @param dst       receives the bytes, none added; null: they are skipped
/// @param len_out   receives the length; required: a null one gives -1
/// @param capacity  bytes at `dst`; a longer string fails
/// @return 0 or -1; after a failure past the length field the cursor stays after that field
int zoflvd_rdbuf_ecma_str(ZOFLVD_RDBUF* rb, char* dst, uint16_t* len_out, int capacity);

/// The next byte, or null at the end.
const uint8_t* zoflvd_rdbuf_cur(const ZOFLVD_RDBUF* rb);

/// Bytes left, 0 at the end.
uint32_t zoflvd_rdbuf_remained(const ZOFLVD_RDBUF* rb);
