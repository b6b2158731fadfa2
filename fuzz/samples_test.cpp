// SPDX-License-Identifier: Apache-2.0
#include "fuzz/walk.h"
#include "tests/support/heap_faults.h"
#include "tests/support/mem_file.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>

namespace {

Bytes content(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// The walk over each sample gives what it always gave, on every machine, with little heap.
TEST(Walk, OverTheSamplesIsAsBefore)
{
    const std::filesystem::path root = ZOFLV_SOURCE_DIR;
    const std::filesystem::directory_iterator folder(root / "samples");
    std::ostringstream walks;
    for (const auto& path : std::set<std::filesystem::path>(begin(folder), end(folder))) {
        if (path.extension() != ".flv")
            continue;
        MemFile file(content(path));
        HeapFaults heap;
        const WalkResult result = walk_demuxer(file.mfal(), 4); // reads all, then seeks
        EXPECT_LE(heap.peak(), 1 << 20) << path;
        walks << path.stem().string() << ' ' << result.streams << ' ' << result.frames << ' '
              << result.bytes << ' ' << result.hash << '\n';
    }
    const Bytes golden = content(root / "tests/golden/walks.txt"); // streams, frames, bytes, hash
    EXPECT_EQ(walks.str(), std::string(golden.begin(), golden.end()));
}

} // namespace
