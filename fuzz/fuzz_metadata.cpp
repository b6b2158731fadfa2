// SPDX-License-Identifier: Apache-2.0
// The body of a script tag.
#include "fuzz/fuzz.h"
#include "fuzz/walk.h"
#include "tests/support/mem_file.h"
#include "zoflv/dmx/zoflvd_metadata.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    MemFile file(FlvBuilder().tag(18, 0, Bytes(data, data + size)).bytes());
    const int64_t start = 0;
    int64_t next = 0;
    ZOFLVD_METADATA md = {};
    const int rc = zoflvd_metadata_init(file.mfal(), file.fh(), &start, &md, &next);
    WALK_CHECK(walk_is_one_of(rc, {0, -3}));
    WALK_CHECK(md.keyframe_cnt >= 0 && md.filepositions_cnt >= md.keyframe_cnt &&
               md.times_cnt >= md.keyframe_cnt);
    double sum = 0; // every element is there
    for (int32_t i = 0; i < md.keyframe_cnt; ++i)
        sum += md.times[i] + md.filepositions[i];
    WALK_CHECK(rc == 0 || sum == 0);
    zoflvd_metadata_deinit(&md);
    return 0;
}
