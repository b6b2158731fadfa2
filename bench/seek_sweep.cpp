// SPDX-License-Identifier: Apache-2.0
// Seeks at random times in all modes, held against the rules: `seek_sweep FILE...` over files in order
// of time, `seek_sweep --generate MIB [indexed]` over a recording made for it. Prints what seeks cost.
#include "fuzz/seek_model.h"
#include "fuzz/walk.h"
#include "tests/support/mem_file.h"
#include "zoflv/dmx/zoflvds_priv.h"

#include <cstring>
#include <fstream>
#include <iterator>
#include <random>

namespace {

constexpr int seeks_per_mode = 1000;

struct Cost {
    long long most = 0;
    long long sum = 0;
    void add(long long n)
    {
        most = std::max(most, n);
        sum += n;
    }
};

// 25 frames and 50 audio frames a second, a keyframe every two seconds, about 1 Mbit/s.
Bytes recording(size_t mib, bool indexed)
{
    constexpr size_t frame = 4500;
    FlvBuilder body;
    if (indexed)
        body.header();
    std::mt19937 random(7);
    uint32_t i = 0;
    for (; body.size() < mib << 20; ++i) {
        const bool key = i % 50 == 0;
        body.tag(9, i * 40,
                 cat({hex(key ? "13 30 A0 30 78" : "23 30 A0 30 78"),
                      Bytes((key ? 10 : 1) * frame + random() % 999, 0xAA)}));
        body.tag(8, i * 40, mp3_tag(Bytes(200 + random() % 99, 0xAA)));
        body.tag(8, i * 40 + 20, mp3_tag(Bytes(200 + random() % 99, 0xAA)));
    }
    const Bytes duration = amf_prop("duration", amf_num(i * 0.04));
    if (indexed)
        return body.indexed({duration}).bytes();
    FlvBuilder head;
    head.header().tag(18, 0, on_meta_data({duration}));
    return head.raw(body.bytes()).bytes();
}

// Returns the number of seeks that landed elsewhere.
int sweep_stream(MemFile* file, const Bytes& bytes, ZOFLVD* h, int index)
{
    int wrong = 0;
    ZOFLVDS* s = zoflvds_open(h, index, nullptr);
    SeekModel model(bytes, s->sh);
    const bool indexed = zoflvd_mblk_elem_cnt(&s->idx) > 0;
    std::mt19937_64 random(20240611);
    for (int mode = 0; mode < 4; ++mode) {
        Cost reads;
        Cost read_bytes;
        int found = 0;
        long long over = 0; // bytes beyond what crawling takes
        for (int i = 0; i < seeks_per_mode; ++i) {
            const int64_t time =
                1 + static_cast<int64_t>(random() % static_cast<uint64_t>(s->sh.duration));
            model.steps = 0;
            const Found tag = indexed ? model.by_index(time, mode) : model.seek(time, mode);
            file->reset();
            int64_t landed = 0;
            long long pos = 0;
            const bool ok = zoflvds_seek(s, &time, &landed, mode) == ZOFLV_OK;
            reads.add(file->calls(MemFile::Read));
            read_bytes.add(file->bytes_read);
            over = std::max(over, file->bytes_read - 16LL * model.steps);
            s->mfal.getpos(s->fh, &pos);
            found += ok;
            if (ok != tag.has_value() || (ok && (landed != tag->time || pos != tag->pos)))
                ++wrong;
        }
        std::printf(
            "  stream %d %-8s mode %d: %4d found, reads %lld at most %.1f on average, bytes "
            "%lld at most %.0f on average, %lld besides headers\n",
            index, indexed ? "index" : "no index", mode, found, reads.most,
            static_cast<double>(reads.sum) / seeks_per_mode, read_bytes.most,
            static_cast<double>(read_bytes.sum) / seeks_per_mode, over);
    }
    zoflvds_close(s);
    return wrong;
}

int sweep(const char* name, const Bytes& bytes)
{
    MemFile file(bytes);
    const int64_t unknown = 0;
    ZOFLVD_INFO info;
    ZOFLVD* h = zoflvd_create(file.mfal(), &unknown, &info, nullptr);
    if (!h) {
        std::fprintf(stderr, "%s: not readable as FLV\n", name);
        return 1;
    }
    std::printf("%s, %zu bytes, %.1f s\n", name, bytes.size(),
                static_cast<double>(info.duration) / static_cast<double>(SEC));
    int wrong = 0;
    for (int i = 0; i < info.strm_cnt; ++i)
        wrong += sweep_stream(&file, bytes, h, i);
    zoflvd_delete(h);
    std::printf("  %d of %d landed elsewhere\n", wrong, info.strm_cnt * 4 * seeks_per_mode);
    return wrong;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc >= 3 && std::strcmp(argv[1], "--generate") == 0)
        return sweep("generated", recording(std::stoul(argv[2]), argc > 3)) ? 1 : 0;
    int wrong = argc < 2;
    for (int i = 1; i < argc; ++i) {
        std::ifstream in(argv[i], std::ios::binary);
        const std::string text((std::istreambuf_iterator<char>(in)), {});
        wrong += sweep(argv[i], Bytes(text.begin(), text.end()));
    }
    return wrong ? 1 : 0;
}
