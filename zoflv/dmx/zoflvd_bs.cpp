// SPDX-License-Identifier: Apache-2.0
#include "zoflv/dmx/zoflvd_bs.h"

#include "zoflv/dmx/zoflv_conv.h"
#include "zoflv/dmx/zoflv_err.h"
#include "zoflv/dmx/zoflv_log.h"
#include "zoflv/dmx/zoflv_num.h"

#include <cstddef>

namespace {

constexpr char tag[] = "zoflvd_bs";
constexpr char source[] = "zoflv/dmx/zoflvd_bs";
constexpr uint32_t all_set = 0xFFFFFFFF;

// Leading zero bits of a 4-bit value.
constexpr uint8_t leading_zeros[16] = {4, 3, 2, 2, 1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0};

void fail(int check)
{
    zoflv_log_assert(tag, source, check);
}

// The position may lie far after the buffer and `last` just before it. Such addresses are formed
// and compared as numbers: as pointers they would not be defined.
uintptr_t address(const uint8_t* p)
{
    return reinterpret_cast<uintptr_t>(p);
}

uint8_t* pointer(uintptr_t value)
{
    return reinterpret_cast<uint8_t*>(value);
}

bool past_end(const ZOFLVD_BS* bs)
{
    return !bs->org || address(bs->cur) > address(bs->last);
}

// Readable bits from the position on; the position must not be past the end.
uint64_t bits_left(const ZOFLVD_BS* bs)
{
    const uint64_t bytes = uint64_t{address(bs->last) - address(bs->cur)} + 1;
    return bytes * 8 - static_cast<uint32_t>(bs->bit_pos);
}

void advance(ZOFLVD_BS* bs, uint64_t bits)
{
    const uint64_t until = static_cast<uint32_t>(bs->bit_pos) + bits;
    const uint64_t bytes = until / 8;
    const uintptr_t room = UINTPTR_MAX - address(bs->cur);
    bs->cur = pointer(address(bs->cur) + (bytes < room ? static_cast<uintptr_t>(bytes) : room));
    bs->bit_pos = static_cast<int32_t>(until % 8);
}

// The next n bits, 1 to 32, all of them in the buffer.
uint32_t gather(const ZOFLVD_BS* bs, uint32_t n)
{
    const uint32_t until = static_cast<uint32_t>(bs->bit_pos) + n;
    const uint32_t bytes = (until + 7) / 8; // 1 to 5
    const uint64_t value = zoflv_be(bs->cur, static_cast<int>(bytes)) >> (bytes * 8 - until);
    return static_cast<uint32_t>(value & ((uint64_t{1} << n) - 1));
}

// Logs a position past the end.
bool refused(const ZOFLVD_BS* bs)
{
    if (!past_end(bs))
        return false;
    fail(3001);
    return true;
}

// Logs a count that is none and a position past the end, with the value that such a read gives.
bool refused(const ZOFLVD_BS* bs, int n, uint32_t* value)
{
    if (n < 0 || n > 32) {
        fail(3002);
        *value = all_set;
        return true;
    }
    *value = 0;
    return refused(bs);
}

// Counts the 0 bits before the next 1 bit. False when the buffer ends first.
bool count_zeros(const ZOFLVD_BS* bs, uint32_t* zeros)
{
    const uint8_t* p = bs->cur;
    size_t bytes = static_cast<size_t>(address(bs->last) - address(p)) + 1;
    uint64_t count = 0;
    uint32_t byte = static_cast<uint8_t>(*p << bs->bit_pos); // bits beyond the byte read as 0
    if (byte == 0) {
        count = 8 - static_cast<uint32_t>(bs->bit_pos);
        for (++p, --bytes; bytes > 0 && *p == 0; ++p, --bytes)
            count += 8; // long runs go by bytes: a buffer of zeros may be large
        if (bytes == 0)
            return false;
        byte = *p;
    }
    const uint32_t high = byte >> 4;
    count += high ? leading_zeros[high] : 4u + leading_zeros[byte & 15];
    *zeros = count < all_set ? static_cast<uint32_t>(count) : all_set;
    return true;
}

} // namespace

void zoflvd_bs_init(ZOFLVD_BS* bs, uint8_t* buf, int size, int clear)
{
    if (size < 0)
        size = 0;
    bs->cur = buf;
    bs->bit_pos = 0;
    bs->last = pointer(address(buf) + static_cast<uintptr_t>(size) - 1);
    bs->start = buf;
    bs->org = buf;
    bs->size = size;
    bs->skip_bytes = 0;
    bs->bytes_written = 0;
    if (clear && buf && size > 0)
        buf[0] = 0;
}

int zoflvd_bs_skip(ZOFLVD_BS* bs, int n)
{
    if (n > 0 && !past_end(bs))
        advance(bs, static_cast<uint32_t>(n));
    return 0;
}

uint32_t zoflvd_bs_read(ZOFLVD_BS* bs, int n)
{
    if (n == 0)
        return 0;
    uint32_t value = 0;
    if (refused(bs, n, &value))
        return value;
    const uint32_t bits = static_cast<uint32_t>(n);
    value = all_set;
    if (bits <= bits_left(bs))
        value = gather(bs, bits);
    else
        fail(3003);
    advance(bs, bits);
    return value;
}

uint32_t zoflvd_bs_peek(const ZOFLVD_BS* bs, int n)
{
    if (n == 0)
        return 0;
    const uint32_t bits = static_cast<uint32_t>(n);
    if (n < 0 || n > 32 || past_end(bs) || bits > bits_left(bs)) {
        fail(3004);
        return all_set;
    }
    return gather(bs, bits);
}

uint32_t zoflvd_bs_peek_max(const ZOFLVD_BS* bs, int n, int* avail)
{
    if (n == 0) {
        *avail = 0;
        return all_set;
    }
    uint32_t value = 0;
    if (refused(bs, n, &value))
        return value;
    const uint64_t left = bits_left(bs);
    const uint32_t wanted = static_cast<uint32_t>(n);
    const uint32_t bits = wanted < left ? wanted : static_cast<uint32_t>(left);
    *avail = static_cast<int>(bits);
    return gather(bs, bits);
}

uint32_t zoflvd_bs_read1(ZOFLVD_BS* bs)
{
    if (refused(bs))
        return 0;
    const uint32_t bit = gather(bs, 1);
    advance(bs, 1);
    return bit;
}

void zoflvd_bs_read1_skip(ZOFLVD_BS* bs)
{
    if (!refused(bs))
        advance(bs, 1);
}

uint32_t zoflvd_bs_peek_clz(const ZOFLVD_BS* bs)
{
    if (past_end(bs))
        return 0;
    uint32_t zeros = 0;
    if (!count_zeros(bs, &zeros)) {
        __android_log_print(ANDROID_LOG_ERROR, tag, "bitstream buffer is out of bounds, [%s: %d]",
                            source, 3005);
        return 0;
    }
    return zeros;
}

uint32_t zoflvd_bs_read_ue(ZOFLVD_BS* bs)
{
    if (refused(bs))
        return 0;
    const uint32_t zeros = zoflvd_bs_peek_clz(bs);
    if (zeros > 32) { // no 32-bit value has such a code
        fail(3006);
        const uint64_t code = uint64_t{zeros} * 2 + 1;
        const uint64_t left = bits_left(bs);
        advance(bs, code < left ? code : left);
        return all_set;
    }
    advance(bs, uint64_t{zeros} + 1); // the prefix and its 1 bit
    if (zeros == 0)
        return 0;
    const uint64_t base = (uint64_t{1} << zeros) - 1;
    return static_cast<uint32_t>(base + zoflvd_bs_read(bs, static_cast<int>(zeros)));
}

int32_t zoflvd_bs_read_se(ZOFLVD_BS* bs)
{
    const int64_t code = zoflvd_bs_read_ue(bs);
    return zoflv_wrap32(code % 2 ? (code + 1) / 2 : -(code / 2));
}

uint32_t zoflvd_bs_read_te(ZOFLVD_BS* bs, int range)
{
    if (range <= 0)
        return 0;
    if (range == 1)
        return zoflvd_bs_read1(bs) ^ 1;
    return zoflvd_bs_read_ue(bs);
}

int zoflvd_bs_clz_in_code(uint32_t value)
{
    int zeros = 0;
    for (int shift = 28; shift >= 0; shift -= 4) {
        const uint32_t nibble = value >> shift & 15;
        zeros += leading_zeros[nibble];
        if (nibble)
            break;
    }
    return zeros;
}

int zoflvd_bs_is_more_rbsp_data(const ZOFLVD_BS* bs)
{
    if (past_end(bs))
        return 0;
    const uint64_t left = bits_left(bs);
    if (left > 8)
        return 1;
    // The last byte: only the stop bit, a 1 after which all bits are 0, is no payload.
    const uint32_t rest = gather(bs, static_cast<uint32_t>(left));
    return rest != uint32_t{1} << (left - 1);
}

int zoflvd_bs_read_rbsp_trailing_bits(ZOFLVD_BS* bs)
{
    if (refused(bs))
        return ZOFLV_ERR_FAIL;
    int avail = 0;
    if (zoflvd_bs_peek_max(bs, 1, &avail) != 1 || avail != 1)
        return ZOFLV_ERR_FAIL;
    advance(bs, 1);
    while (bs->bit_pos != 0) {
        if (zoflvd_bs_read1(bs))
            return ZOFLV_ERR_FAIL;
    }
    return ZOFLV_OK;
}

int zoflvd_bs_annexb_to_ebsp(ZOFLVD_BS* bs)
{
    const int64_t scan = int64_t{bs->size} - bs->skip_bytes;
    if (scan < 3 || past_end(bs))
        return ZOFLV_ERR_FAIL;
    const int64_t readable = static_cast<int64_t>(address(bs->last) - address(bs->cur)) + 1;
    const int64_t end = scan < readable ? scan : readable;
    for (int64_t i = 0; i + 3 <= end; ++i) {
        const uint8_t* p = bs->cur + i;
        if (p[0] != 0 || p[1] != 0 || p[2] != 1)
            continue;
        bs->skip_bytes += static_cast<int32_t>(i + 3);
        bs->start = bs->cur + (i + 3);
        bs->cur = bs->start;
        return ZOFLV_OK;
    }
    return ZOFLV_ERR_FAIL;
}

void zoflvd_bs_ebsp_to_rbsp(ZOFLVD_BS* bs)
{
    int64_t length = int64_t{bs->size} - bs->skip_bytes;
    // Bits read before a start code was looked for are not in skip_bytes: stay inside the buffer.
    const int64_t readable = static_cast<int64_t>(address(bs->last) + 1 - address(bs->start));
    if (length > readable)
        length = readable;
    int64_t kept = 0;
    int zeros = 0;
    for (int64_t i = 0; i < length; ++i) {
        if (zeros == 2 && bs->start[i] == 3) { // emulation_prevention_three_byte
            ++bs->skip_bytes;
            zeros = 0;
            if (++i == length)
                break;
        }
        const uint8_t byte = bs->start[i];
        bs->start[kept++] = byte;
        zeros = byte == 0 ? zeros + 1 : 0;
    }
    bs->last = pointer(address(bs->start) + static_cast<uintptr_t>(kept) - 1);
}

int zoflvd_bs_write(ZOFLVD_BS* bs, uint32_t value, int n)
{
    if (n > 32)
        return 0;
    for (int i = n - 1; i >= 0; --i)
        zoflvd_bs_write1(bs, value >> i);
    return n;
}

int zoflvd_bs_write1(ZOFLVD_BS* bs, uint32_t bit)
{
    *bs->cur = static_cast<uint8_t>(uint32_t{*bs->cur} << 1 | (bit & 1));
    if (++bs->bit_pos == 8) {
        bs->bit_pos = 0;
        ++bs->cur;
        *bs->cur = 0;
        ++bs->bytes_written;
    }
    return 1;
}

int zoflvd_bs_bytes_written(const ZOFLVD_BS* bs)
{
    return bs->bytes_written;
}

int zoflvd_bs_bits_written(const ZOFLVD_BS* bs)
{
    return zoflv_wrap32(int64_t{bs->bytes_written} * 8 + bs->bit_pos);
}
