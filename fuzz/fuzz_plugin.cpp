// SPDX-License-Identifier: Apache-2.0
// A whole file through the plugin, as the framework calls it. The plugin is linked in, not loaded, so
// that its coverage guides the fuzzer.
#include "fuzz/fuzz.h"
#include "fuzz/plugin_walk.h"

extern "C" android::ExtractorDef GETEXTRACTORDEF();

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const uint32_t seed = walk_seed(data, size);
    zoflv_host::MemoryFaults faults;
    if (seed % 4 == 0) {
        faults.fail_at = seed / 4 % 64;
        faults.size_unknown = seed / 256 % 8 == 0;
    }
    zoflv_host::MemoryDataSource source(std::vector<uint8_t>(data, data + size), faults);
    walk_plugin(GETEXTRACTORDEF(), &source, seed);
    return 0;
}
