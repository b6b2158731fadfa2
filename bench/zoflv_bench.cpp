// SPDX-License-Identifier: Apache-2.0
// What the demuxer and the plugin take for each thing that they do, over files made for it: of three
// shapes, and of 1, 10 and 100 MB, so that growth shows.
#include "bench/bare_walk.h"
#include "bench/recording.h"
#include "libextractor/mfal/zocmn_mfal_android_q.h"
#include "zoflv/dmx/zoflvd.h"
#include "zoflv/dmx/zoflvd_metadata.h"

#include <android/log.h>
#include <benchmark/benchmark.h>
#include <zoflv_host/extractor.h>
#include <zoflv_host/log.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <random>
#include <tuple>
#include <unistd.h>

namespace {

using zoflv_host::DataSource;
using zoflv_host::FileDataSource;
using zoflv_host::MemoryDataSource;

/// A file that is gone as soon as it is open.
std::shared_ptr<DataSource> file_source(const std::function<void(const ByteSink&)>& write)
{
    char path[] = "/tmp/zoflv-bench-XXXXXX";
    const std::unique_ptr<FILE, int (*)(FILE*)> file(::fdopen(::mkstemp(path), "wb"), std::fclose);
    write([&](const Bytes& bytes) { std::fwrite(bytes.data(), 1, bytes.size(), file.get()); });
    std::fflush(file.get());
    std::string error;
    std::shared_ptr<DataSource> source = FileDataSource::open(path, &error);
    ::unlink(path);
    return source;
}

std::shared_ptr<DataSource> recording(size_t shape, int64_t mb, bool indexed)
{
    static std::map<std::tuple<size_t, int64_t, bool>, std::shared_ptr<DataSource>> made;
    std::shared_ptr<DataSource>& source = made[{shape, mb, indexed}];
    if (!source)
        source = file_source([&](const ByteSink& sink) {
            write_recording(shapes[shape], mb * 1000000, indexed, sink);
        });
    return source;
}

/// A source, opened with the demuxer.
struct Demuxer {
    explicit Demuxer(std::shared_ptr<DataSource> from)
        : source(std::move(from)), helper(source->record()), buffer(1 << 20)
    {
        zoflv_host::set_log_level(ANDROID_LOG_ERROR + 1); // nothing: some seeks find no keyframe
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
        return zoflvd_create(&mfal, &unknown, &info, nullptr);
    }
    ZOFLVDS* stream(int type)
    {
        for (int i = 0; i < info.strm_cnt; ++i) {
            if (info.strm_type[i] == type)
                return zoflvds_open(handle, i, nullptr);
        }
        return nullptr;
    }
    /// The stream's next frame; from the start again after the last. Returns its length.
    int read(ZOFLVDS* stream)
    {
        const int64_t start = 0;
        int length = 0;
        int64_t time = 0, next_time = 0;
        if (zoflvds_get_frm(stream, buffer.data(), static_cast<int>(buffer.size()), &length, &time,
                            &next_time) != ZOFLV_OK)
            zoflvds_seek(stream, &start, nullptr, 0);
        return length;
    }

    std::shared_ptr<DataSource> source;
    android::DataSourceHelper helper;
    _ZOCMN_MFAL mfal = {};
    ZOFLVD_INFO info = {};
    ZOFLVD* handle = nullptr;
    std::vector<uint8_t> buffer;
};

/// Shows what an operation read, and what of that reached the system.
class Reads {
public:
    Reads(benchmark::State& state, const DataSource& source)
        : m_state(state), m_source(source), m_before(source.counts())
    {}
    ~Reads()
    {
        const zoflv_host::ReadCounts now = m_source.counts();
        show("reads", now.reads - m_before.reads);
        show("bytes", now.bytes - m_before.bytes);
        show("system_reads", now.system_reads - m_before.system_reads);
    }

private:
    void show(const char* name, uint64_t count)
    {
        m_state.counters[name] =
            benchmark::Counter(static_cast<double>(count), benchmark::Counter::kAvgIterations);
    }
    benchmark::State& m_state;
    const DataSource& m_source;
    const zoflv_host::ReadCounts m_before;
};

/// Frames of a type; 0: of both streams in turn, as a player reads them.
void read_frames(benchmark::State& state, std::shared_ptr<DataSource> source, int type)
{
    Demuxer dmx(std::move(source));
    ZOFLVDS* const streams[] = {dmx.stream(type == 0 ? 9 : type),
                                type == 0 ? dmx.stream(8) : nullptr};
    int64_t bytes = 0;
    size_t turn = 0;
    {
        const Reads reads(state, *dmx.source);
        for (auto _ : state)
            bytes += dmx.read(streams[type == 0 ? turn++ % 2 : 0]);
    }
    state.SetBytesProcessed(bytes);
    for (ZOFLVDS* const stream : streams)
        zoflvds_close(stream);
}

void frames(benchmark::State& state)
{
    read_frames(state, recording(static_cast<size_t>(state.range(0)), state.range(2), false),
                static_cast<int>(state.range(1)));
}
BENCHMARK(frames)
    ->ArgNames({"shape", "type", "MB"})
    ->ArgsProduct({{0, 1, 2}, {0, 8, 9}, {1, 10, 100}});

void frames_mp3(benchmark::State& state)
{
    FlvBuilder file;
    file.header(4);
    for (uint32_t i = 0; i < 10000; ++i)
        file.tag(8, i * 26, mp3_tag(fill(413)));
    read_frames(state, std::make_shared<MemoryDataSource>(file.bytes()), 8);
}
BENCHMARK(frames_mp3);

/// A video frame after a hundred tags of audio.
void frames_behind_foreign_tags(benchmark::State& state)
{
    read_frames(state, recording(3, 10, false), 9);
}
BENCHMARK(frames_behind_foreign_tags);

/// A file whose index has so many keyframes; they all lie at the first tag.
std::shared_ptr<DataSource> with_index(int64_t entries)
{
    std::vector<double> times, positions;
    for (int64_t i = 0; i < entries; ++i) {
        times.push_back(static_cast<double>(i));
        positions.push_back(13);
    }
    FlvBuilder file;
    file.header().tag(
        18, 0,
        on_meta_data({amf_prop("duration", amf_num(1000)), amf_keyframes(times, positions)}));
    file.tag(9, 0, avc_config_tag(avc_record({hex(picture_sps)}, {hex(picture_pps)})));
    file.tag(8, 0, aac_config_tag());
    add_group(&file, shapes[1], 0);
    return std::make_shared<MemoryDataSource>(file.bytes());
}
constexpr int64_t index_sizes[] = {10, 1000, 100000, 900000};

void open_with_index(benchmark::State& state)
{
    Demuxer dmx(with_index(state.range(0)));
    const Reads reads(state, *dmx.source);
    for (auto _ : state)
        zoflvd_delete(dmx.open());
}
void build_index(benchmark::State& state)
{
    Demuxer dmx(with_index(state.range(0)));
    for (auto _ : state)
        zoflvds_close(dmx.stream(9));
}
void decode_amf0(benchmark::State& state)
{
    Demuxer dmx(with_index(state.range(0)));
    void* const fh = dmx.mfal.open(&dmx.mfal, 0);
    const int64_t first_tag = 13;
    for (auto _ : state) {
        ZOFLVD_METADATA metadata = {};
        int64_t next = 0;
        zoflvd_metadata_init(&dmx.mfal, fh, &first_tag, &metadata, &next);
        zoflvd_metadata_deinit(&metadata);
    }
    dmx.mfal.close(fh);
}
BENCHMARK(open_with_index)->ArgName("entries")->Apply([](benchmark::internal::Benchmark* b) {
    for (const int64_t size : index_sizes)
        b->Arg(size);
});
BENCHMARK(build_index)->ArgName("entries")->Apply([](benchmark::internal::Benchmark* b) {
    for (const int64_t size : index_sizes)
        b->Arg(size);
});
BENCHMARK(decode_amf0)->ArgName("entries")->Apply([](benchmark::internal::Benchmark* b) {
    for (const int64_t size : index_sizes)
        b->Arg(size);
});

void open_without_index(benchmark::State& state)
{
    Demuxer dmx(recording(1, state.range(0), false));
    const Reads reads(state, *dmx.source);
    for (auto _ : state)
        zoflvd_delete(dmx.open());
}
BENCHMARK(open_without_index)->ArgName("MB")->Arg(1)->Arg(10)->Arg(100);

/// A frame that is a new AVC configuration: a record and its sequence parameter set, parsed.
void frames_of_parameter_sets(benchmark::State& state)
{
    FlvBuilder file;
    file.header(1);
    for (uint32_t i = 0; i < 1000; ++i)
        file.tag(9, i, avc_config_tag(avc_record({hex(picture_sps)}, {hex(picture_pps)})));
    read_frames(state, std::make_shared<MemoryDataSource>(file.bytes()), 9);
}
BENCHMARK(frames_of_parameter_sets);

void seek(benchmark::State& state)
{
    Demuxer dmx(recording(1, state.range(2), state.range(0) != 0));
    ZOFLVDS* const stream = dmx.stream(9);
    std::mt19937_64 random(1);
    {
        const Reads reads(state, *dmx.source);
        for (auto _ : state) {
            const int64_t time =
                static_cast<int64_t>(random() % static_cast<uint64_t>(dmx.info.duration));
            zoflvds_seek(stream, &time, nullptr, static_cast<int>(state.range(1)));
        }
    }
    zoflvds_close(stream);
}
BENCHMARK(seek)
    ->ArgNames({"indexed", "mode", "MB"})
    ->ArgsProduct({{0, 1}, {0, 1, 2, 3}, {1, 10, 100}});

/// What a seek cannot do without: with an index three reads, else a crawl from tag to tag.
template <typename Reads>
void bare_seeks(benchmark::State& state)
{
    char path[] = "/tmp/zoflv-bench-XXXXXX";
    const std::unique_ptr<FILE, int (*)(FILE*)> made(::fdopen(::mkstemp(path), "wb"), std::fclose);
    const int64_t tags =
        write_recording(shapes[1], state.range(1) * 1000000, false, [&](const Bytes& bytes) {
            std::fwrite(bytes.data(), 1, bytes.size(), made.get());
        });
    std::fflush(made.get());
    const OpenFile file(path);
    ::unlink(path);
    Reads source{file};
    const int64_t duration_ms = tags / (1 + shapes[1].audio_per_video) * frame_ms;
    std::mt19937_64 random(1);
    for (auto _ : state) {
        const int64_t number = static_cast<int64_t>(random() >> 1);
        if (state.range(0) == 0) {
            benchmark::DoNotOptimize(
                bare_seek(source, file.size, duration_ms, number % duration_ms));
            continue;
        }
        uint8_t bytes[16];
        const int64_t pos = number % file.size;
        for (const size_t size : {size_t{16}, size_t{11}, size_t{5}})
            benchmark::DoNotOptimize(source.copy(pos, bytes, size));
    }
}
BENCHMARK_TEMPLATE(bare_seeks, PlainReads)
    ->ArgNames({"indexed", "MB"})
    ->ArgsProduct({{0, 1}, {1, 10, 100}});

std::shared_ptr<zoflv_host::ExtractorLibrary> plugin()
{
    std::string error;
    auto library = zoflv_host::ExtractorLibrary::load(ZOFLV_PLUGIN, &error);
    if (!library) {
        std::fprintf(stderr, "zoflv_bench: %s\n", error.c_str());
        std::exit(1);
    }
    return library;
}

void plugin_init(benchmark::State& state)
{
    const auto library = plugin();
    const auto source = recording(1, state.range(0), true);
    std::string error;
    const Reads reads(state, *source);
    for (auto _ : state)
        benchmark::DoNotOptimize(library->open(source, &error)->count_tracks());
}
BENCHMARK(plugin_init)->ArgName("MB")->Arg(1)->Arg(100);

void plugin_sample(benchmark::State& state)
{
    const auto source = recording(static_cast<size_t>(state.range(0)), 100, false);
    std::string error;
    const auto extractor = plugin()->open(source, &error);
    const auto track = extractor->track(extractor->count_tracks() - 1);
    track->start();
    const Reads reads(state, *source);
    for (auto _ : state) {
        if (!track->read().sample)
            track->seek_read(0, 0);
    }
}
BENCHMARK(plugin_sample)->ArgName("shape")->Arg(0)->Arg(1)->Arg(2);

} // namespace

BENCHMARK_MAIN();
