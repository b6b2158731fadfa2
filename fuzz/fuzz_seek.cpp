// SPDX-License-Identifier: Apache-2.0
// A file and a sequence of calls on its streams. The last bytes of the input are the calls, 4 bytes
// each: an operation and its argument; their number is the very last byte.
#include "fuzz/fuzz.h"
#include "fuzz/walk.h"
#include "tests/support/mem_file.h"

#include <algorithm>

namespace {

constexpr size_t call_size = 4;

void call(ZOFLVDS* s, const uint8_t* op, int64_t duration)
{
    const int64_t part = op[1] << 16 | op[2] << 8 | op[3]; // of 2^24
    const int64_t time = duration > 0 ? duration / (1 << 24) * part + part : part * 10000;
    int length = 0;
    uint8_t buffer[512];
    switch (op[0] % 4) {
    case 0:
        zoflvds_seek(s, &time, nullptr, op[0] >> 2 & 3);
        break;
    case 1:
        zoflvds_seek(s, nullptr, nullptr, op[0] >> 2 & 3);
        break;
    case 2:
        if (zoflvds_get_frm(s, buffer, sizeof buffer, &length, nullptr, nullptr) == 0)
            WALK_CHECK(length >= 0 && length <= static_cast<int>(sizeof buffer));
        break;
    default:
        zoflvds_get_frm(s, nullptr, 0, &length, nullptr, nullptr);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 1)
        return 0;
    const size_t calls = std::min<size_t>(data[size - 1] % 32, (size - 1) / call_size);
    const uint8_t* ops = data + size - 1 - calls * call_size;
    MemFile file(Bytes(data, ops));
    const int64_t unknown = 0;
    ZOFLVD_INFO info;
    ZOFLVD* h = zoflvd_create(file.mfal(), &unknown, &info, nullptr);
    for (int i = 0; h && i < info.strm_cnt; ++i) {
        ZOFLVDS* s = zoflvds_open(h, i, nullptr);
        for (size_t n = 0; s && n < calls; ++n)
            call(s, ops + n * call_size, info.duration);
        zoflvds_close(s);
    }
    zoflvd_delete(h);
    return 0;
}
