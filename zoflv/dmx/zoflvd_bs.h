// SPDX-License-Identifier: Apache-2.0
/// @file
/// A bit reader and writer over a byte buffer, with the Exp-Golomb codes and RBSP operations of
/// ITU-T H.264 | ISO/IEC 14496-10, 7.2 to 7.4 and 9.1.
///
/// The buffer belongs to the caller. Reads are most significant bit first. A position past the end
/// and a read that runs past the last byte are logged and give the values stated with each read;
/// nothing outside the buffer is ever touched. Bit counts are 0 to 32; others are logged, read
/// nothing and give all bits set.
///
/// The demuxer skips and reads bits and Exp-Golomb codes. The other functions complete the module,
/// for a reader of more than the first fields of a parameter set; only tests call them.
#pragma once

#include <cstdint>

struct ZOFLVD_BS {
    uint8_t* cur;          ///< the byte that holds the next bit; may lie past `last`
    int32_t bit_pos;       ///< the next bit in `cur`, 0 to 7, 0 the most significant; writer: bits
                           ///< already in `cur`
    uint8_t* last;         ///< the last readable byte
    uint8_t* start;        ///< first byte of the payload
    uint8_t* org;          ///< the buffer given to zoflvd_bs_init()
    int32_t size;          ///< bytes in the buffer
    int32_t skip_bytes;    ///< bytes of the buffer that are not payload
    int32_t bytes_written; ///< bytes completed by the writer
};

/// @param buf    may be null when `size` is 0
/// @param size   bytes; a negative size counts as 0
/// @param clear  non-zero: set the first byte to 0, for writing
void zoflvd_bs_init(ZOFLVD_BS* bs, uint8_t* buf, int size, int clear);

/// Moves forward by `n` bits, unless already past the end; where it ends is not tested. Always 0.
int zoflvd_bs_skip(ZOFLVD_BS* bs, int n);

/// The next `n` bits. Past the end: 0, no move. Running past the last byte: all bits set, and the
/// position moves on.
uint32_t zoflvd_bs_read(ZOFLVD_BS* bs, int n);

/// The next `n` bits without moving; all bits set when they are not all there.
uint32_t zoflvd_bs_peek(const ZOFLVD_BS* bs, int n);

/// The next bits, `n` or as many as remain, without moving.
/// @param avail  receives the number of bits given; not written past the end (result 0)
/// @return the bits; all bits set when their number is 0
uint32_t zoflvd_bs_peek_max(const ZOFLVD_BS* bs, int n, int* avail);

/// One bit; past the end 0, no move.
uint32_t zoflvd_bs_read1(ZOFLVD_BS* bs);
void zoflvd_bs_read1_skip(ZOFLVD_BS* bs);

/// The number of 0 bits before the next 1 bit, without moving; 0 when there is none.
uint32_t zoflvd_bs_peek_clz(const ZOFLVD_BS* bs);

/// An unsigned Exp-Golomb code. More than 32 leading zeros are logged, skipped and give all
/// bits set.
uint32_t zoflvd_bs_read_ue(ZOFLVD_BS* bs);

/// A signed Exp-Golomb code.
int32_t zoflvd_bs_read_se(ZOFLVD_BS* bs);

/// A truncated Exp-Golomb code for values 0 to `range`; a range of 0 or less reads nothing.
uint32_t zoflvd_bs_read_te(ZOFLVD_BS* bs, int range);

/// Leading zero bits of a value, 32 for 0.
int zoflvd_bs_clz_in_code(uint32_t value);

/// 1 when payload bits other than the stop bit remain, else 0.
int zoflvd_bs_is_more_rbsp_data(const ZOFLVD_BS* bs);

/// Consumes a 1 bit and the 0 bits up to the byte boundary: 0, or -1 when they are not there.
int zoflvd_bs_read_rbsp_trailing_bits(ZOFLVD_BS* bs);

/// Moves the payload start past the first start code 00 00 01: 0, or -1 when there is none.
int zoflvd_bs_annexb_to_ebsp(ZOFLVD_BS* bs);

/// Removes the emulation-prevention bytes from the payload, in place.
void zoflvd_bs_ebsp_to_rbsp(ZOFLVD_BS* bs);

/// Appends the low `n` bits of `value`. The buffer must hold every completed byte and one more; no
/// bound is tested. Returns `n`; 0, writing nothing, for more than 32.
int zoflvd_bs_write(ZOFLVD_BS* bs, uint32_t value, int n);
int zoflvd_bs_write1(ZOFLVD_BS* bs, uint32_t bit); ///< appends the lowest bit; returns 1

int zoflvd_bs_bytes_written(const ZOFLVD_BS* bs); ///< completed bytes
int zoflvd_bs_bits_written(const ZOFLVD_BS* bs);  ///< all bits, those of the open byte included
