// SPDX-License-Identifier: Apache-2.0
// walk HOW FILE [8|9]: reads the audio (8) or video (9) frames of an AAC and AVC recording, or first the
// one and then the other, and prints what they come to. HOW:
//   reads    a bare walk, each of its reads a system call
//   window   the same from a window of 64 KiB
//   map      the same from the mapped file
//   demuxer  the demuxer, each of its reads a system call
#include "bench/plain_record.h"
#include "zoflv/dmx/zoflvd.h"

#include <cstdio>
#include <cstdlib>
#include <memory>

namespace {

constexpr int buffer_size = 1 << 24; // a tag holds no more

/// Opened with the demuxer, which then walks a track.
class DemuxerWalk {
public:
    explicit DemuxerWalk(const OpenFile& file) : m_source{file}, m_mfal(plain_record(&m_source))
    {
        const int64_t unknown = 0;
        m_handle = zoflvd_create(&m_mfal, &unknown, &m_info, nullptr);
    }
    ~DemuxerWalk() { zoflvd_delete(m_handle); }

    WalkTotals track(int type, uint8_t* buffer)
    {
        WalkTotals totals;
        for (int i = 0; m_handle && i < m_info.strm_cnt; ++i) {
            if (m_info.strm_type[i] != type)
                continue;
            ZOFLVDS* const stream = zoflvds_open(m_handle, i, nullptr);
            int length = 0;
            int64_t time = 0, next_time = 0;
            while (zoflvds_get_frm(stream, buffer, buffer_size, &length, &time, &next_time) ==
                   ZOFLV_OK) {
                ++totals.frames;
                totals.bytes += length;
                totals.last_ms = time / 10000;
            }
            zoflvds_close(stream);
        }
        return totals;
    }

private:
    PlainReads m_source;
    _ZOCMN_MFAL m_mfal;
    ZOFLVD_INFO m_info = {};
    ZOFLVD* m_handle = nullptr;
};

void print(int type, const WalkTotals& totals)
{
    std::printf("%d: %lld frames, %lld bytes, to %lld ms\n", type,
                static_cast<long long>(totals.frames), static_cast<long long>(totals.bytes),
                static_cast<long long>(totals.last_ms));
}

} // namespace

int main(int argc, char** argv)
{
    const std::string how = argc > 2 ? argv[1] : "";
    const OpenFile file(argc > 2 ? argv[2] : "");
    if (how.empty() || file.fd < 0) {
        std::fprintf(stderr, "usage: walk reads|window|map|demuxer FILE [8|9]\n");
        return 2;
    }
    const int only = argc > 3 ? std::atoi(argv[3]) : 0;
    const std::unique_ptr<uint8_t[]> memory(new uint8_t[buffer_size]); // touched as far as needed
    uint8_t* const buffer = memory.get();
    for (const int type : {8, 9}) {
        if (only != 0 && only != type)
            continue;
        if (how == "reads") {
            PlainReads source{file};
            print(type, walk_track(source, type, buffer));
        } else if (how == "window") {
            WindowReads source(file);
            print(type, walk_track(source, type, buffer));
        } else if (how == "map") {
            MappedReads source(file);
            print(type, walk_track(source, type, buffer));
        } else {
            print(type, DemuxerWalk(file).track(type, buffer));
        }
    }
    return 0;
}
