// SPDX-License-Identifier: Apache-2.0
// Everything that the interface offers, over damaged files, failing storage and no memory. The walks
// end the process when a result is not a documented one; handles, leaks and every byte outside a block
// are watched by the file record and the sanitizers.
#include "fuzz/seeds.h"
#include "fuzz/walk.h"
#include "tests/support/heap_faults.h"
#include "tests/support/mem_file.h"

#include <gtest/gtest.h>

#include <climits>
#include <pthread.h>
#include <string>

namespace {

// Walks that differ: every buffer as large as its frame, and some one byte smaller.
constexpr uint32_t whole_frames = 4;
constexpr uint32_t short_buffers = 1;

/// The seed as a file, its bytes cut off after `length`: in a whole tag, where it is not a file.
Bytes file_of(const Seed& seed, size_t length)
{
    const std::string target = seed.target;
    const Bytes bytes = cut(seed.bytes, length);
    if (target == "headers")
        return header_seed_file(bytes);
    if (target == "metadata")
        return FlvBuilder().header(1).tag(18, 0, bytes).tag(9, 0, hex("13 30 A0 30 78")).bytes();
    return bytes;
}

bool is_file_part(const Seed& seed)
{
    const std::string target = seed.target;
    return target == "file" || target == "headers" || target == "metadata";
}

std::vector<Seed> files()
{
    std::vector<Seed> out;
    for (const Seed& seed : seeds()) {
        if (is_file_part(seed))
            out.push_back({"file", seed.name, file_of(seed, seed.bytes.size())});
    }
    return out;
}

WalkResult walk(const Bytes& bytes)
{
    MemFile file(bytes);
    return walk_demuxer(file.mfal(), walk_seed(bytes.data(), bytes.size()));
}

/// Runs with fault 0, 1, ... until a run does not reach its fault: every one has had its turn.
template <typename Run>
int each_fault(Run reaches)
{
    int n = 0;
    while (reaches(n))
        ++n;
    return n;
}

TEST(Hostile, CutInsideTheTag)
{
    for (const Seed& seed : seeds()) {
        if (!is_file_part(seed) || std::string(seed.target) == "file")
            continue;
        for (size_t length = 1; length < seed.bytes.size(); ++length)
            walk(file_of(seed, length));
    }
}

TEST(Hostile, CutsAndChangedBytes)
{
    const size_t most = 512;                                       // bytes from the start on
    const bool every = std::getenv("ZOFLV_EXHAUSTIVE") != nullptr; // all values, for minutes
    for (const Seed& seed : files()) {
        const WalkResult whole = walk(seed.bytes);
        EXPECT_TRUE(whole.opened && whole.frames > 0) << seed.name;
        for (size_t length = 0; length < seed.bytes.size(); ++length)
            walk(cut(seed.bytes, length));
        const size_t changed = std::min(most, seed.bytes.size());
        const Bytes values = every ? fill(256) : hex("00 01 08 12 7F 80 FF");
        for (size_t at = 0; at < changed; ++at) {
            for (const uint8_t value : values) {
                Bytes bytes = seed.bytes;
                bytes[at] = value;
                walk(bytes);
            }
        }
        std::printf("%s: %zu cuts, %zu changed bytes\n", seed.name, seed.bytes.size(),
                    changed * values.size());
    }
}

TEST(Hostile, EachFileCallAndAllocationFails)
{
    for (const Seed& seed : files()) {
        int calls = 0;
        int allocations = 0;
        for (const bool sticky : {false, true}) {
            for (const int read_result : {0, 1, MemFile::ALL_BUT_ONE, -1}) {
                calls += each_fault([&](int n) {
                    MemFile file(seed.bytes);
                    file.fail(MemFile::Any, n, sticky, read_result);
                    walk_demuxer(file.mfal(), sticky ? short_buffers : whole_frames);
                    return file.calls() > n;
                });
            }
            allocations += each_fault([&](int n) {
                MemFile file(seed.bytes);
                HeapFaults heap;
                heap.fail(n, sticky);
                walk_demuxer(file.mfal(), sticky ? short_buffers : whole_frames);
                EXPECT_EQ(heap.live(), 0) << seed.name << ", allocation " << n;
                return heap.count() > n;
            });
        }
        std::printf("%s: %d file calls failed, %d allocations\n", seed.name, calls, allocations);
    }
}

void walk_on_small_stack(_ZOCMN_MFAL* mfal)
{
    pthread_attr_t attributes;
    pthread_t thread;
    ASSERT_EQ(pthread_attr_init(&attributes), 0);
    const auto least = static_cast<size_t>(PTHREAD_STACK_MIN); // 128 KiB on some machines
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, std::max(size_t{64} << 10, least)), 0);
    const auto body = [](void* record) -> void* {
        walk_demuxer(static_cast<_ZOCMN_MFAL*>(record), whole_frames);
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attributes, body, mfal), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}

// A few bytes must not cost much, and many no more than in proportion: bounds on the file calls and
// the heap of a whole walk.
TEST(Hostile, CostsNoMoreThanItHolds)
{
    const size_t part = std::getenv("ZOFLV_EXHAUSTIVE") ? 1 : 16; // of the long files
    const size_t tail = (64 << 20) / part, nals = (16 << 20) / part - 6, entries = 900000 / part;
    const auto meta = [](const Bytes& body) { return FlvBuilder().header(1).tag(18, 0, body); };
    const Bytes ecma = hex("08 00 00 00 01");
    const Bytes open_objects = cat(std::vector<Bytes>(250000, hex("00 01 7A 03")));
    const Bytes claim =
        cat({amf_str("onMetaData"), ecma, amf_prop("filepositions", hex("0A 0F FF FF FF"))});
    const Bytes frame = hex("13 30 A0 30 78");
    Bytes record = avc_record_720();
    record[4] = 0xFC; // lengths of one byte
    const Bytes cycle =
        Bits().raw(hex("67 42 00 1E")).ue(0).ue(0).ue(1).u(1, 0).ue(0).ue(0).ue(1U << 31).bytes();
    const Bytes large =
        avc_record(std::vector<Bytes>(31, cat({avc_sps(80, 45), Bytes(60000, 0x41)})), {});
    const std::vector<double> many(entries, 13);
    const auto calls = [](size_t count) { return static_cast<int>(count); };
    const struct {
        const char* name;
        Bytes file;
        int calls;
        long long heap;
    } cases[] = {
        {"nested objects",
         meta(cat({amf_str("onMetaData"), ecma, open_objects})).tag(9, 0, frame).bytes(), 100,
         1010000},
        {"claimed array", meta(claim).tag(9, 0, frame).bytes(), 100, 4096},
        {"long index", meta(on_meta_data({amf_keyframes(many, many)})).tag(9, 0, frame).bytes(),
         120, calls(entries) * 55},
        {"claimed cycle",
         FlvBuilder().header(1).tag(9, 0, avc_config_tag(avc_record({cycle}, {}))).bytes(), 100,
         4096},
        {"large configuration",
         interleaved().tag(9, 2000, avc_config_tag(large)).tag(9, 2040, frame).bytes(), 4000,
         2 << 20},
        {"lengths of one byte",
         FlvBuilder()
             .header(1)
             .tag(9, 0, avc_config_tag(record))
             .tag(9, 0, cat({hex("17 01 00 00 00"), Bytes(nals)}))
             .bytes(),
         calls(nals) * 4, 4096},
        {"zeros at the end",
         meta(on_meta_data({two_seconds})).tag(9, 0, frame).raw(Bytes(tail)).bytes(), calls(tail),
         4096},
        {"bytes like tags",
         meta(on_meta_data({two_seconds}))
             .tag(9, 0, frame)
             .raw(cat(std::vector<Bytes>(tail / 3, hex("08 00 00"))))
             .bytes(),
         calls(tail) / 150, 4096},
    };
    for (const auto& c : cases) {
        MemFile file(c.file);
        HeapFaults heap;
        heap.fail(-1);
        walk_on_small_stack(file.mfal());
        EXPECT_LE(file.calls(), c.calls) << c.name;
        EXPECT_LE(heap.peak(), c.heap) << c.name;
        std::printf("%s: %zu bytes, %d file calls, %lld bytes of heap\n", c.name, c.file.size(),
                    file.calls(), heap.peak());
    }
}

} // namespace
