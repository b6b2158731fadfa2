// SPDX-License-Identifier: Apache-2.0
// Everything that the interface offers, over damaged files, failing storage and no memory. The walks
// end the process when a result is not a documented one; handles, leaks and every byte outside a block
// are watched by the file record and the sanitizers.
#include "fuzz/seeds.h"
#include "fuzz/walk.h"
#include "tests/support/heap_faults.h"
#include "tests/support/mem_file.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::vector<Seed> files()
{
    std::vector<Seed> out;
    for (const Seed& seed : seeds()) {
        if (std::string(seed.target) == "file")
            out.push_back(seed);
        if (std::string(seed.target) == "headers")
            out.push_back({"file", seed.name, header_seed_file(seed.bytes)});
    }
    return out;
}

void walk(const Bytes& bytes)
{
    MemFile file(bytes);
    walk_demuxer(file.mfal(), walk_seed(bytes.data(), bytes.size()));
}

TEST(Hostile, SeedsAreReadWhole)
{
    for (const Seed& seed : files()) {
        MemFile file(seed.bytes);
        const WalkResult result = walk_demuxer(file.mfal(), 1);
        EXPECT_TRUE(result.opened && result.frames > 0) << seed.name;
    }
}

TEST(Hostile, CutAtEveryByte)
{
    for (const Seed& seed : files()) {
        for (size_t length = 0; length < seed.bytes.size(); ++length)
            walk(cut(seed.bytes, length));
    }
}

TEST(Hostile, EachByteChanged)
{
    const size_t most = 512; // bytes from the start on
    for (const Seed& seed : files()) {
        for (size_t at = 0; at < std::min(most, seed.bytes.size()); ++at) {
            for (const uint8_t value : hex("00 01 08 12 7F 80 FF")) {
                Bytes bytes = seed.bytes;
                bytes[at] = value;
                walk(bytes);
            }
        }
    }
}

TEST(Hostile, EachFileCallFails)
{
    for (const Seed& seed : files()) {
        for (const int read_result : {0, 1, -1}) {
            for (const bool sticky : {false, true}) {
                for (int n = 0;; ++n) {
                    MemFile file(seed.bytes);
                    file.fail(MemFile::Any, n, sticky, read_result);
                    walk_demuxer(file.mfal(), 1);
                    if (file.calls() <= n)
                        break; // every call has had its turn
                }
            }
        }
    }
}

TEST(Hostile, EachAllocationFails)
{
    for (const Seed& seed : files()) {
        for (const bool sticky : {false, true}) {
            for (int n = 0;; ++n) {
                MemFile file(seed.bytes);
                HeapFaults heap;
                heap.fail(n, sticky);
                walk_demuxer(file.mfal(), 1);
                EXPECT_EQ(heap.live(), 0) << seed.name << ", allocation " << n;
                if (heap.count() <= n)
                    break;
            }
        }
    }
}

} // namespace
