// SPDX-License-Identifier: Apache-2.0
#include "zoflv/dmx/zoflvd_rdbuf.h"

#include "zoflv/dmx/zoflv_conv.h"
#include "zoflv/dmx/zoflv_err.h"
#include "zoflv/dmx/zoflv_log.h"

#include <cstddef>
#include <cstring>

namespace {

constexpr char tag[] = "zoflvd_rdbuf";

int fail(int check)
{
    zoflv_log_assert(tag, "zoflv/dmx/zoflvd_rdbuf", check);
    return ZOFLV_ERR_FAIL;
}

size_t left(const ZOFLVD_RDBUF* rb)
{
    return rb->cur < rb->end ? static_cast<size_t>(rb->end - rb->cur) : 0;
}

} // namespace

int zoflvd_rdbuf_past_end()
{
    return fail(112);
}

int zoflvd_rdbuf_no_int24()
{
    return fail(245);
}

int zoflvd_rdbuf_not_filled()
{
    __android_log_print(ANDROID_LOG_WARN, tag, "fread() failed, EOF?");
    __android_log_print(ANDROID_LOG_ERROR, tag, "zoflvd_rdbuf_init() failed");
    return ZOFLV_EOF;
}

void zoflvd_rdbuf_deinit(ZOFLVD_RDBUF*) {}

int zoflvd_rdbuf_eob(const ZOFLVD_RDBUF* rb)
{
    return left(rb) == 0;
}

int zoflvd_rdbuf_read(ZOFLVD_RDBUF* rb, void* dst, int count)
{
    if (count < 0)
        return fail(108);
    const size_t n = static_cast<size_t>(count);
    const uint8_t* bytes = nullptr;
    if (!zoflvd_rdbuf_take(rb, n, &bytes))
        return ZOFLV_ERR_FAIL;
    if (dst && n > 0)
        std::memcpy(dst, bytes, n);
    return ZOFLV_OK;
}

int zoflvd_rdbuf_rewind(ZOFLVD_RDBUF* rb, int count)
{
    if (count < 1 || count > rb->cur - rb->base)
        rb->cur = rb->base;
    else
        rb->cur -= count;
    return ZOFLV_OK;
}

int zoflvd_rdbuf_bits(ZOFLVD_RDBUF* rb, int n, uint32_t* out)
{
    if (left(rb) == 0) {
        fail(157);
        return fail(200);
    }
    const uint32_t until = rb->bit_pos + static_cast<uint32_t>(n);
    if (n < 1 || n > 32 || (until - 1) / 8 >= left(rb)) {
        fail(166);
        return fail(200);
    }
    const uint32_t bytes = (until + 7) / 8; // 1 to 5: 32 bits from the last bit of a byte on
    const uint64_t value = zoflv_be(rb->cur, static_cast<int>(bytes)) >> (bytes * 8 - until);
    if (out)
        *out = static_cast<uint32_t>(value & ((uint64_t{1} << n) - 1));
    rb->cur += until / 8;
    rb->bit_pos = until % 8;
    return ZOFLV_OK;
}

int zoflvd_rdbuf_int16(ZOFLVD_RDBUF* rb, uint16_t* out)
{
    const uint8_t* p = nullptr;
    if (!zoflvd_rdbuf_take(rb, 2, &p))
        return fail(217);
    if (out)
        *out = static_cast<uint16_t>(zoflv_be16(p));
    return ZOFLV_OK;
}

int zoflvd_rdbuf_int32(ZOFLVD_RDBUF* rb, uint32_t* out)
{
    const uint8_t* p = nullptr;
    if (!zoflvd_rdbuf_take(rb, 4, &p))
        return fail(230);
    if (out)
        *out = zoflv_be32(p);
    return ZOFLV_OK;
}

int zoflvd_rdbuf_ecma_str(ZOFLVD_RDBUF* rb, char* dst, uint16_t* len_out, int capacity)
{
    if (!len_out || zoflvd_rdbuf_int16(rb, len_out) != ZOFLV_OK)
        return ZOFLV_ERR_FAIL;
    const int length = static_cast<int16_t>(*len_out);
    if (length < 0) {
        __android_log_print(ANDROID_LOG_ERROR, tag, "invalid string len %d", length);
        return ZOFLV_ERR_FAIL;
    }
    if (length > capacity) {
        __android_log_print(ANDROID_LOG_ERROR, tag,
                            "string too large (%d bytes) for buffer (%d bytes)", length, capacity);
        return ZOFLV_ERR_FAIL;
    }
    if (zoflvd_rdbuf_read(rb, dst, length) != ZOFLV_OK) {
        __android_log_print(ANDROID_LOG_ERROR, tag,
                            "failed to read string (not enough data in buffer)");
        return ZOFLV_ERR_FAIL;
    }
    return ZOFLV_OK;
}

const uint8_t* zoflvd_rdbuf_cur(const ZOFLVD_RDBUF* rb)
{
    return left(rb) == 0 ? nullptr : rb->cur;
}

uint32_t zoflvd_rdbuf_remained(const ZOFLVD_RDBUF* rb)
{
    return static_cast<uint32_t>(left(rb));
}
