// SPDX-License-Identifier: Apache-2.0
// The walk through the plugin, over failing storage and no memory. The plugin is linked in, so that its
// allocations are seen.
#include "fuzz/plugin_walk.h"
#include "fuzz/seeds.h"
#include "tests/support/heap_faults.h"

#include <gtest/gtest.h>

#include <string>

extern "C" android::ExtractorDef GETEXTRACTORDEF();

using namespace zoflv_host;

namespace {

TEST(HostilePlugin, EachReadAndAllocationFails)
{
    for (const Seed& seed : seeds()) {
        if (std::string(seed.target) != "file")
            continue;
        MemoryDataSource sound(seed.bytes);
        EXPECT_GT(walk_plugin(GETEXTRACTORDEF(), &sound, 1).frames, 0) << seed.name;
        for (uint64_t n = 1; n <= sound.reads(); ++n) {
            for (const int kind : {0, 1, 2, 3, 4, 5}) {
                MemoryFaults faults;
                (kind < 2 ? faults.fail_at : faults.short_at) = n;
                faults.short_bytes = kind < 4 ? 1 : -1;
                faults.sticky = kind & 1;
                MemoryDataSource source(seed.bytes, faults);
                walk_plugin(GETEXTRACTORDEF(), &source, 1);
                EXPECT_LE(source.size_queries(), 1U) << "opened again";
            }
        }
        int allocations = 0;
        for (const bool sticky : {false, true}) {
            for (int n = 0, reached = 1; reached; ++n, ++allocations) {
                MemoryDataSource source(seed.bytes);
                HeapFaults heap;
                heap.fail(n, sticky);
                walk_plugin(GETEXTRACTORDEF(), &source, 1);
                EXPECT_EQ(heap.live(), 0) << seed.name << ", allocation " << n;
                reached = heap.count() > n;
            }
        }
        std::printf("%s: %d reads failed, %d allocations\n", seed.name,
                    static_cast<int>(sound.reads()) * 6, allocations - 2);
    }
}

} // namespace
