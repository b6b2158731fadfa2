// SPDX-License-Identifier: Apache-2.0
// Opening, reading and seeking over a synthetic recording in memory: ten minutes of interleaved AVC and
// AAC, a keyframe every two seconds, with and without an index.
#include "libextractor/mfal/zocmn_mfal_android_q.h"
#include "tests/support/flv_builder.h"
#include "zoflv/dmx/zoflvd.h"

#include <benchmark/benchmark.h>
#include <memory>
#include <random>
#include <zoflv_host/data_source.h>

namespace {

constexpr int seconds = 600;
constexpr int frames_per_second = 25;
constexpr int keyframe_distance = 50;
constexpr int64_t duration = int64_t{seconds} * ZOFLV_TICKS_PER_SECOND;

Bytes recording(bool indexed)
{
    FlvBuilder file;
    file.header();
    if (!indexed)
        file.tag(18, 0, on_meta_data({amf_prop("duration", amf_num(seconds))}));
    file.tag(9, 0, avc_config_tag(avc_record({avc_sps(80, 45)}, {hex("68 CE 38 80")})));
    file.tag(8, 0, aac_config_tag());
    std::mt19937 random(1);
    for (int i = 0; i < seconds * frames_per_second; ++i) {
        const uint32_t time_ms = static_cast<uint32_t>(i * 1000 / frames_per_second);
        const bool key = i % keyframe_distance == 0;
        const size_t size = (key ? 20000u : 2000u) + random() % 1000;
        file.tag(9, time_ms, avc_tag({fill(size / 2), fill(size / 2)}, key));
        file.tag(8, time_ms, aac_tag(fill(300 + random() % 100)));
        file.tag(8, time_ms + 20, aac_tag(fill(300 + random() % 100)));
    }
    if (indexed)
        file.indexed({amf_prop("duration", amf_num(seconds))});
    return file.bytes();
}

// The recording, open through the adapter. Stream 0 is audio, 1 video.
struct Demuxer {
    explicit Demuxer(bool indexed) : source(recording(indexed)), helper(source.record())
    {
        zocmn_mfal_init(&mfal, &helper);
        handle = open();
    }
    ~Demuxer()
    {
        zoflvd_delete(handle);
        zocmn_mfal_deinit(&mfal);
    }
    ZOFLVD* open()
    {
        const int64_t unknown = 0;
        ZOFLVD_INFO info;
        return zoflvd_create(&mfal, &unknown, &info, nullptr);
    }

    zoflv_host::MemoryDataSource source;
    android::DataSourceHelper helper;
    _ZOCMN_MFAL mfal = {};
    ZOFLVD* handle = nullptr;
};

Demuxer& demuxer(bool indexed)
{
    static Demuxer with(true);
    static Demuxer without(false);
    return indexed ? with : without;
}

void open_file(benchmark::State& state)
{
    Demuxer& dmx = demuxer(state.range(0) != 0);
    for (auto _ : state)
        zoflvd_delete(dmx.open());
}
BENCHMARK(open_file)->ArgName("indexed")->Arg(0)->Arg(1);

void read_frames(benchmark::State& state)
{
    Demuxer& dmx = demuxer(true);
    std::vector<uint8_t> buffer(1 << 20);
    ZOFLVDS* stream = zoflvds_open(dmx.handle, static_cast<int>(state.range(0)), nullptr);
    const int64_t start = 0;
    int64_t bytes = 0;
    for (auto _ : state) {
        int length = 0;
        if (zoflvds_get_frm(stream, buffer.data(), static_cast<int>(buffer.size()), &length,
                            nullptr, nullptr) != ZOFLV_OK)
            zoflvds_seek(stream, &start, nullptr, 0);
        bytes += length;
    }
    state.SetBytesProcessed(bytes);
    state.SetItemsProcessed(state.iterations());
    zoflvds_close(stream);
}
BENCHMARK(read_frames)->ArgName("stream")->Arg(0)->Arg(1);

void seek(benchmark::State& state)
{
    Demuxer& dmx = demuxer(state.range(0) != 0);
    ZOFLVDS* stream = zoflvds_open(dmx.handle, 1, nullptr);
    std::mt19937_64 random(1);
    const uint64_t reads = dmx.source.reads();
    const uint64_t bytes = dmx.source.bytes();
    int64_t failed = 0;
    for (auto _ : state) {
        const int64_t time = static_cast<int64_t>(random() % static_cast<uint64_t>(duration));
        failed += zoflvds_seek(stream, &time, nullptr, static_cast<int>(state.range(1))) < 0;
    }
    const double seeks = static_cast<double>(state.iterations());
    state.counters["reads"] = static_cast<double>(dmx.source.reads() - reads) / seeks;
    state.counters["bytes"] = static_cast<double>(dmx.source.bytes() - bytes) / seeks;
    state.counters["failed"] = static_cast<double>(failed);
    zoflvds_close(stream);
}
BENCHMARK(seek)->ArgNames({"indexed", "mode"})->ArgsProduct({{0, 1}, {0, 1, 3}});

} // namespace

BENCHMARK_MAIN();
