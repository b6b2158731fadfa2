// SPDX-License-Identifier: Apache-2.0
// A whole file through the demuxer.
#include "fuzz/fuzz.h"
#include "fuzz/walk.h"
#include "tests/support/mem_file.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    MemFile file(Bytes(data, data + size));
    walk_demuxer(file.mfal(), walk_seed(data, size));
    return 0;
}
