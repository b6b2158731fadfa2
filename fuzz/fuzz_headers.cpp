// SPDX-License-Identifier: Apache-2.0
// The first bytes of a stream's tags. The first byte chooses audio or video and how the rest is cut
// into tags; a video tag's CodecID and an audio tag's SoundFormat are the input's.
#include "fuzz/fuzz.h"
#include "fuzz/walk.h"
#include "tests/support/mem_file.h"
#include "zoflv/dmx/zoflvd_avc.h"

#include <algorithm>

namespace {

constexpr size_t most_tags = 101; // one more than are looked at

// The bytes in tags of `step` bytes. Built in place: this runs for every input.
Bytes tags_of(uint8_t type, size_t step, const uint8_t* data, size_t size)
{
    Bytes out;
    out.reserve(size + most_tags * 15);
    for (size_t at = 0, n = 0; at < size && n < most_tags; at += step, ++n) {
        const size_t length = std::min(size - at, step);
        const uint8_t header[11] = {type, static_cast<uint8_t>(length >> 16),
                                    static_cast<uint8_t>(length >> 8),
                                    static_cast<uint8_t>(length)};
        out.insert(out.end(), header, header + sizeof header);
        out.insert(out.end(), data + at, data + at + length);
        out.insert(out.end(), 4, 0); // PreviousTagSize, which is not looked at
    }
    return out;
}

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
    WALK_CHECK(sh_video_avc_dec_cfg(&sh, &rb, nullptr, nullptr, nullptr, nullptr) == 0);
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
    MemFile file(tags_of(type, step, data + 1, size - 1));
    const ZOFLVD_METADATA metadata = {};
    const int64_t file_size = file.reported_size;
    const ZOFLVD_SH_FILE in = {0, 0, file_size, file_size, 0, &metadata};
    ZOFLVD_SH sh = {};
    sh.strm_type = type;
    uint32_t fourcc = 0;
    const int rc =
        zoflvd_sh_init(&sh, file.mfal(), file.fh(), &in, 0, size % 2 ? &fourcc : nullptr);
    WALK_CHECK(walk_is_one_of(rc, {0, -1}));
    WALK_CHECK((sh.csd != nullptr) == (sh.csd_size > 0));
    WALK_CHECK(rc == 0 || !sh.csd);
    std::free(sh.csd);
    check_record(data + 1, size - 1);
    return 0;
}
