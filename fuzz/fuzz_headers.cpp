// SPDX-License-Identifier: Apache-2.0
// The first bytes of a stream's tags. The first byte chooses audio or video and how the rest is cut
// into tags; a video tag's CodecID and an audio tag's SoundFormat are the input's.
#include "fuzz/fuzz.h"
#include "fuzz/walk.h"
#include "tests/support/mem_file.h"
#include "zoflv/dmx/zoflvd_priv.h"

#include <algorithm>

namespace {

// The record that the plugin and the frame reader pass on: measured, then written.
void check_record(const uint8_t* data, size_t size)
{
    MemFile file(Bytes(data, data + size));
    const std::unique_ptr<uint8_t[]> block(new uint8_t[size + 1]);
    ZOFLVD_RDBUF rb;
    if (zoflvd_rdbuf_init(&rb, block.get(), static_cast<int>(size), file.mfal(), file.fh(), 1) != 0)
        return;
    ZOFLVD_SH sh = {};
    int32_t measured = 0;
    int32_t record = 0;
    if (sh_video_avc_dec_cfg(&sh, &rb, nullptr, &measured, nullptr, &record) != 0)
        return;
    WALK_CHECK(measured >= 0 && record <= static_cast<int32_t>(size));
    const std::unique_ptr<uint8_t[]> out(new uint8_t[static_cast<size_t>(measured) + 1]);
    int32_t written = -1;
    zoflvd_rdbuf_rewind(&rb, 0);
    if (sh_video_avc_dec_cfg(&sh, &rb, out.get(), &written, nullptr, nullptr) == 0)
        WALK_CHECK(written == measured);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 1)
        return 0;
    const uint8_t type = data[0] & 1 ? 8 : 9;
    const size_t step = data[0] >> 1 ? data[0] >> 1 : size; // 0: one tag
    FlvBuilder flv;
    for (size_t at = 1; at < size; at += step)
        flv.tag(type, 0, Bytes(data + at, data + std::min(size, at + step)));
    MemFile file(flv.bytes());
    ZOFLVD h = {};
    h.file_size = static_cast<int64_t>(flv.size());
    h.data_len = h.file_size;
    h.sh[0].strm_type = type;
    uint32_t fourcc = 0;
    const int rc = zoflvd_sh_init(&h.sh[0], file.mfal(), file.fh(), &h, 0, &fourcc);
    WALK_CHECK(walk_is_one_of(rc, {0, -1}));
    WALK_CHECK((h.sh[0].csd != nullptr) == (h.sh[0].csd_size > 0));
    WALK_CHECK(rc == 0 || !h.sh[0].csd);
    std::free(h.sh[0].csd);
    check_record(data + 1, size - 1);
    return 0;
}
