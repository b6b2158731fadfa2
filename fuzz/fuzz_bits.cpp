// SPDX-License-Identifier: Apache-2.0
// Calls on the bit reader and the read buffer. The first half of the input is the calls, one byte each,
// the second half the bytes that they work on.
#include "fuzz/fuzz.h"
#include "fuzz/walk.h"
#include "tests/support/mem_file.h"
#include "zoflv/dmx/zoflvd_bs.h"
#include "zoflv/dmx/zoflvd_rdbuf.h"

namespace {

void call(ZOFLVD_BS* bs, int op, int n)
{
    int avail = 0;
    switch (op) {
    case 0:
        zoflvd_bs_read(bs, n);
        break;
    case 1:
        zoflvd_bs_peek(bs, n);
        break;
    case 2:
        zoflvd_bs_peek_max(bs, n, &avail);
        WALK_CHECK(avail >= 0 && avail <= n);
        break;
    case 3:
        zoflvd_bs_skip(bs, n - 1);
        break;
    case 4:
        zoflvd_bs_read_ue(bs);
        zoflvd_bs_read_se(bs);
        break;
    case 5:
        zoflvd_bs_read_te(bs, n);
        zoflvd_bs_peek_clz(bs);
        break;
    case 6:
        zoflvd_bs_is_more_rbsp_data(bs);
        zoflvd_bs_read_rbsp_trailing_bits(bs);
        break;
    default:
        if (n & 1)
            zoflvd_bs_annexb_to_ebsp(bs);
        else
            zoflvd_bs_ebsp_to_rbsp(bs);
    }
    WALK_CHECK(bs->bit_pos >= 0 && bs->bit_pos <= 7 && bs->skip_bytes <= bs->size);
}

void call(ZOFLVD_RDBUF* rb, int op, int n)
{
    char text[32];
    uint16_t length = 0;
    switch (op) {
    case 0:
    case 1:
        zoflvd_rdbuf_bits(rb, n, nullptr);
        break;
    case 2:
        zoflvd_rdbuf_read(rb, text, n - 1);
        break;
    case 3:
        zoflvd_rdbuf_rewind(rb, n);
        break;
    case 4:
        zoflvd_rdbuf_ecma_str(rb, text, &length, n < 32 ? n : 32);
        break;
    case 5:
        zoflvd_rdbuf_byte(rb, nullptr);
        break;
    case 6:
        zoflvd_rdbuf_int16(rb, nullptr);
        break;
    default:
        zoflvd_rdbuf_int32(rb, nullptr);
        WALK_CHECK(zoflvd_rdbuf_int24(rb, nullptr) == -1);
        WALK_CHECK(zoflvd_rdbuf_ecma_str(rb, text, nullptr, n) == -1);
    }
    WALK_CHECK(rb->base <= rb->cur && rb->cur <= rb->end && rb->bit_pos <= 7);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const size_t calls = size / 2;
    const size_t bytes = size - calls;
    const std::unique_ptr<uint8_t[]> block(new uint8_t[bytes + (bytes == 0)]);
    std::copy(data + calls, data + size, block.get());
    ZOFLVD_BS bs;
    zoflvd_bs_init(&bs, block.get(), static_cast<int>(bytes), 0);
    for (size_t i = 0; i < calls; ++i)
        call(&bs, data[i] >> 5, (data[i] & 31) + 1);

    MemFile file(Bytes(data + calls, data + size));
    ZOFLVD_RDBUF rb;
    if (zoflvd_rdbuf_init(&rb, block.get(), static_cast<int>(bytes), file.mfal(), file.fh(), 1) !=
        0)
        return 0;
    for (size_t i = 0; i < calls; ++i)
        call(&rb, data[i] >> 5, (data[i] & 31) + 1);
    zoflvd_rdbuf_deinit(&rb);
    return 0;
}
