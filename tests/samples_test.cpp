// SPDX-License-Identifier: Apache-2.0
#include "tests/support/demux.h"

#include <filesystem>
#include <fstream>
#include <iterator>

namespace {

TEST(Walk, HeapAtMostOneMebibyte)
{
    int streams = 0;
    for (const auto& entry : std::filesystem::directory_iterator(ZOFLV_SOURCE_DIR "/samples")) {
        std::ifstream in(entry.path(), std::ios::binary);
        const Bytes bytes(std::istreambuf_iterator<char>(in), {});
        for (int i = 0; i < Dmx(bytes).info.strm_cnt; ++i, ++streams) { // none: not a video file
            HeapFaults heap;
            Strm t(bytes, i);
            int frames = 0;
            while (t.read(1 << 17) == 0)
                ++frames;
            EXPECT_TRUE(frames > 10 && heap.peak() <= 1 << 20) << entry.path() << heap.peak();
        }
    }
    EXPECT_GE(streams, 12);
}

} // namespace
