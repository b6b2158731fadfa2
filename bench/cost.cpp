// SPDX-License-Identifier: Apache-2.0
// cost OPERATION FILE [TIMES]: does one thing many times over a recording in memory, and prints how often
// it was done and the file calls and bytes that it took. Its instructions are those inside of measured().
#include "libextractor/mfal/zocmn_mfal_android_q.h"
#include "zoflv/dmx/zoflvd.h"

#include <android/log.h>
#include <zoflv_host/extractor.h>
#include <zoflv_host/log.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <random>

namespace {

using zoflv_host::MemoryDataSource;

/// Does the work and returns how many operations it was.
using Work = std::function<int64_t(int64_t times)>;

std::vector<uint8_t> contents(const char* path)
{
    std::ifstream in(path, std::ios::binary);
    const std::string text((std::istreambuf_iterator<char>(in)), {});
    return {text.begin(), text.end()};
}

/// A recording, open.
struct Recording {
    explicit Recording(const char* path)
        : source(std::make_shared<MemoryDataSource>(contents(path))), helper(source->record()),
          buffer(1 << 20)
    {
        zocmn_mfal_init(&mfal, &helper);
        handle = create();
        if (!handle)
            std::exit(1);
    }
    ~Recording()
    {
        zoflvd_delete(handle);
        zocmn_mfal_deinit(&mfal);
    }
    ZOFLVD* create()
    {
        const int64_t unknown = 0;
        return zoflvd_create(&mfal, &unknown, &info, nullptr);
    }
    /// The stream with the frames of a type.
    ZOFLVDS* open(int type)
    {
        for (int i = 0; i < info.strm_cnt; ++i) {
            if (info.strm_type[i] == type)
                return zoflvds_open(handle, i, nullptr);
        }
        return nullptr;
    }

    std::shared_ptr<MemoryDataSource> source;
    android::DataSourceHelper helper;
    _ZOCMN_MFAL mfal = {};
    ZOFLVD_INFO info = {};
    ZOFLVD* handle = nullptr;
    std::vector<uint8_t> buffer;
};

Work frames(Recording& r, int type)
{
    return [&r, stream = r.open(type)](int64_t times) {
        int64_t done = 0;
        int length = 0;
        int64_t time = 0, next_time = 0;
        while (done < times &&
               zoflvds_get_frm(stream, r.buffer.data(), static_cast<int>(r.buffer.size()), &length,
                               &time, &next_time) == ZOFLV_OK)
            ++done;
        return done;
    };
}

Work seeks(Recording& r, int mode)
{
    return [&r, mode, stream = r.open(9)](int64_t times) {
        std::mt19937_64 random(1);
        for (int64_t i = 0; i < times; ++i) {
            const int64_t time =
                static_cast<int64_t>(random() % static_cast<uint64_t>(r.info.duration));
            zoflvds_seek(stream, &time, nullptr, mode);
        }
        return times;
    };
}

Work opens(Recording& r)
{
    return [&r](int64_t times) {
        for (int64_t i = 0; i < times; ++i)
            zoflvd_delete(r.create());
        return times;
    };
}

Work stream_opens(Recording& r)
{
    return [&r](int64_t times) {
        for (int64_t i = 0; i < times; ++i)
            zoflvds_close(r.open(9));
        return times;
    };
}

/// Samples of the last track, through the plugin.
Work samples(Recording& r)
{
    std::string error;
    const auto library = zoflv_host::ExtractorLibrary::load(ZOFLV_PLUGIN, &error);
    const auto extractor = library ? library->open(r.source, &error) : nullptr;
    if (!extractor || extractor->count_tracks() == 0) {
        std::fprintf(stderr, "cost: %s\n", error.c_str());
        std::exit(1);
    }
    const std::shared_ptr<zoflv_host::Track> track =
        extractor->track(extractor->count_tracks() - 1);
    track->start();
    return [track](int64_t times) {
        int64_t done = 0;
        while (done < times && track->read().sample)
            ++done;
        return done;
    };
}

Work work(const char* operation, Recording& r)
{
    const struct {
        const char* name;
        std::function<Work()> make;
    } operations[] = {
        {"video", [&] { return frames(r, 9); }}, {"audio", [&] { return frames(r, 8); }},
        {"sample", [&] { return samples(r); }},  {"seek0", [&] { return seeks(r, 0); }},
        {"seek1", [&] { return seeks(r, 1); }},  {"seek3", [&] { return seeks(r, 3); }},
        {"open", [&] { return opens(r); }},      {"stream", [&] { return stream_opens(r); }},
    };
    for (const auto& o : operations) {
        if (std::strcmp(o.name, operation) == 0)
            return o.make();
    }
    return {};
}

} // namespace

/// By this name callgrind is told what to count.
extern "C" __attribute__((noinline)) int64_t measured(const Work& work, int64_t times)
{
    return work(times);
}

int main(int argc, char** argv)
{
    if (argc < 3) {
        std::fprintf(stderr,
                     "usage: cost video|audio|sample|seek0|seek1|seek3|open|stream FILE [TIMES]\n");
        return 2;
    }
    zoflv_host::set_log_level(ANDROID_LOG_ERROR +
                              1); // nothing: a seek near the end finds no keyframe
    Recording recording(argv[2]);
    const Work what = work(argv[1], recording);
    if (!what)
        return 2;
    const zoflv_host::ReadCounts before = recording.source->counts();
    const int64_t done = measured(what, argc > 3 ? std::atoll(argv[3]) : INT64_MAX);
    const zoflv_host::ReadCounts after = recording.source->counts();
    std::printf("%lld %llu %llu\n", static_cast<long long>(done),
                static_cast<unsigned long long>(after.reads - before.reads),
                static_cast<unsigned long long>(after.bytes - before.bytes));
    return done > 0 ? 0 : 1;
}
