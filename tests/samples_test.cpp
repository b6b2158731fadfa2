// SPDX-License-Identifier: Apache-2.0
#include "fuzz/walk.h"
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

// Every file call and every allocation has its turn to fail, alone and for good.
TEST(Walk, NoFaultIsLost)
{
    const Bytes config = avc_config_tag(avc_record({avc_sps(4, 3)}, {hex("68 CE")}));
    FlvBuilder b = FlvBuilder().header(0);
    b.tag(9, 0, config).tag(8, 0, mp3_tag(fill(30))).tag(9, 40, avc_tag({fill(5), fill(9)}));
    b.tag(9, 80, config).tag(8, 26, mp3_tag(fill(30))).tag(9, 120, avc_tag({fill(5)})).indexed();
    for (const int mode : {0, 1, 2, 3}) {
        for (int n = 0, reached = 1; reached; ++n) {
            SCOPED_TRACE(::testing::Message() << mode << " " << n);
            HeapFaults heap;
            MemFile file(b.bytes());
            file.fail(MemFile::Any, mode & 1 ? -1 : n, mode & 2);
            heap.fail(mode & 1 ? n : -1, mode & 2); // the heap in modes 1 and 3
            const WalkResult result = walk_demuxer(file.mfal(), 1);
            reached = (mode & 1 ? heap.count() : file.calls()) > n;
            EXPECT_TRUE(reached || result.frames > 5);
            EXPECT_TRUE(heap.live() == 0 && file.open_handles == 0);
        }
    }
}

} // namespace
