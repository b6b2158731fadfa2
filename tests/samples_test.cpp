// SPDX-License-Identifier: Apache-2.0
#include "tests/support/demux.h"
#include "fuzz/walk.h"

#include <filesystem>
#include <fstream>
#include <iterator>

namespace {

TEST(Walk, HeapAtMostOneMebibyte)
{
    int samples = 0;
    for (const auto& entry : std::filesystem::directory_iterator(ZOFLV_SOURCE_DIR "/samples")) {
        if (entry.path().extension() != ".flv")
            continue;
        std::ifstream in(entry.path(), std::ios::binary);
        const Bytes bytes(std::istreambuf_iterator<char>(in), {});
        for (int i = 0, frames = 0; i < Dmx(bytes).info.strm_cnt; ++i, frames = 0) {
            HeapFaults heap;
            Strm t(bytes, i);
            while (t.read(1 << 17) == 0)
                ++frames;
            EXPECT_TRUE(frames > 10 && heap.peak() <= 1 << 20) << entry.path() << heap.peak();
        }
        ++samples;
    }
    EXPECT_GE(samples, 8);
}

// Every file call and every allocation has its turn to fail, alone and for good.
TEST(Walk, NoFaultIsLost)
{
    const Bytes config = avc_config_tag(avc_record({avc_sps(4, 3)}, {hex("68 CE")}));
    FlvBuilder b = FlvBuilder().header(0);
    b.tag(9, 0, config).tag(8, 0, mp3_tag(fill(30))).tag(9, 40, avc_tag({fill(5), fill(9)}));
    b.tag(9, 80, config).tag(8, 26, mp3_tag(fill(30))).tag(9, 120, avc_tag({fill(5)})).indexed();
    for (const int mode : {0, 1, 2, 3}) {
        const bool in_heap = mode & 1;
        for (int n = 0, reached = 1; reached; ++n) {
            SCOPED_TRACE(::testing::Message() << mode << " " << n);
            HeapFaults heap;
            MemFile file(b.bytes());
            file.fail(MemFile::Any, in_heap ? -1 : n, mode & 2);
            heap.fail(in_heap ? n : -1, mode & 2);
            const WalkResult result = walk_demuxer(file.mfal(), 1);
            reached = (in_heap ? heap.count() : file.calls()) > n;
            EXPECT_TRUE((reached || result.frames > 5) && heap.live() == 0);
            EXPECT_EQ(file.open_handles, 0);
        }
    }
}

} // namespace
