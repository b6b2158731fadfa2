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
    const size_t most = 512;                                       // bytes from the start on
    const bool every = std::getenv("ZOFLV_EXHAUSTIVE") != nullptr; // all values, for minutes
    for (const Seed& seed : files()) {
        for (size_t at = 0; at < std::min(most, seed.bytes.size()); ++at) {
            for (const uint8_t value : every ? fill(256) : hex("00 01 08 12 7F 80 FF")) {
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

// A few bytes must not cost much: file calls and heap are bounded by what the file holds.
TEST(Hostile, CostsNoMoreThanItHolds)
{
    const auto meta = [](const Bytes& body) { return FlvBuilder().header(1).tag(18, 0, body); };
    const Bytes open_objects = cat(std::vector<Bytes>(250000, hex("00 01 7A 03")));
    const Bytes claim = cat(
        {amf_str("onMetaData"), hex("08 00 00 00 01"), amf_prop("times", hex("0A 0F FF FF FF"))});
    const std::vector<double> many(100000, 13);
    const Bytes nals = cat({hex("17 01 00 00 00"), Bytes(300000, 0)});
    Bytes record = avc_record_720();
    record[4] = 0xFC; // lengths of one byte
    const Bytes frame = hex("13 30 A0 30 78");
    const Bytes audio_like = cat(std::vector<Bytes>(700000, hex("08 00 00")));
    const struct {
        const char* name;
        Bytes file;
        int calls;
        long long heap;
    } cases[] = {
        {"nested objects",
         meta(cat({amf_str("onMetaData"), hex("08 00 00 00 01"), open_objects}))
             .tag(9, 0, frame)
             .bytes(),
         100, 1010000},
        {"claimed array", meta(claim).tag(9, 0, frame).bytes(), 100, 4096},
        {"long index", meta(on_meta_data({amf_keyframes(many, many)})).tag(9, 0, frame).bytes(),
         120, 3500000},
        {"lengths of one byte",
         FlvBuilder().header(1).tag(9, 0, avc_config_tag(record)).tag(9, 0, nals).bytes(), 910000,
         4096},
        {"zeros behind",
         meta(on_meta_data({two_seconds})).tag(9, 0, frame).raw(Bytes(2 << 20)).bytes(), 1300000,
         4096},
        {"bytes like tags",
         meta(on_meta_data({two_seconds})).tag(9, 0, frame).raw(audio_like).bytes(), 5000, 4096},
    };
    for (const auto& c : cases) {
        MemFile file(c.file);
        HeapFaults heap;
        heap.fail(-1);
        walk_demuxer(file.mfal(), 3);
        EXPECT_LE(file.calls(), c.calls) << c.name;
        EXPECT_LE(heap.peak(), c.heap) << c.name;
    }
}

} // namespace
