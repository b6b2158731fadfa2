// SPDX-License-Identifier: Apache-2.0
// seek_times FILE...: seeks at random times in the video of a recording, one after the other in process,
// beside the least that a seek takes: without an index the bare estimate and crawl, with one three reads.
// Prints median and 95th percentile in microseconds, and the bare one's share of them.
#include "bench/plain_record.h"
#include "libextractor/mfal/zocmn_mfal_android_q.h"
#include "zoflv/dmx/zoflvd.h"

#include <zoflv_host/data_source.h>

#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <random>

namespace {

constexpr size_t seek_count = 4000;

using Seek = std::function<void(int64_t time_ms)>;

struct Times {
    double median, p95;
};

Times measure(const Seek& seek, int64_t duration_ms)
{
    using Clock = std::chrono::steady_clock;
    std::vector<double> all;
    std::mt19937_64 random(1); // the same times for all
    for (size_t i = 0; i < seek_count; ++i) {
        const int64_t time = static_cast<int64_t>(random() % static_cast<uint64_t>(duration_ms));
        const Clock::time_point start = Clock::now();
        seek(time);
        all.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
    }
    std::sort(all.begin(), all.end());
    return {all[seek_count / 2], all[seek_count * 95 / 100]};
}

/// The demuxer's video stream over a record.
class Demuxer {
public:
    explicit Demuxer(_ZOCMN_MFAL* mfal)
    {
        const int64_t unknown = 0;
        m_handle = zoflvd_create(mfal, &unknown, &m_info, nullptr);
        for (int i = 0; m_handle && i < m_info.strm_cnt; ++i) {
            if (m_info.strm_type[i] == ZOFLV_TAG_VIDEO)
                m_stream = zoflvds_open(m_handle, i, nullptr);
        }
    }
    ~Demuxer()
    {
        zoflvds_close(m_stream);
        zoflvd_delete(m_handle);
    }
    Demuxer(const Demuxer&) = delete;
    Demuxer& operator=(const Demuxer&) = delete;

    explicit operator bool() const { return m_stream != nullptr; }
    int64_t duration_ms() const { return m_info.duration / ZOFLV_TICKS_PER_MS; }
    bool indexed() const
    {
        int size = 0, count = 0;
        return zoflvds_get_idx_table(m_stream, nullptr, 0, &size, &count) == ZOFLV_OK;
    }
    Seek seek(int mode) const
    {
        return [s = m_stream, mode](int64_t time_ms) {
            const int64_t time = time_ms * ZOFLV_TICKS_PER_MS;
            zoflvds_seek(s, &time, nullptr, mode);
        };
    }

private:
    ZOFLVD_INFO m_info = {};
    ZOFLVD* m_handle = nullptr;
    ZOFLVDS* m_stream = nullptr;
};

Seek bare(const PlainReads& source, int64_t duration_ms, bool indexed)
{
    if (!indexed)
        return [&source, duration_ms](int64_t time_ms) {
            bare_seek(source, source.file.size, duration_ms, time_ms);
        };
    return [&source, duration_ms](int64_t time_ms) {
        uint8_t bytes[16];
        const int64_t pos = time_ms * (source.file.size / duration_ms);
        for (const size_t size : {size_t{16}, size_t{11}, size_t{5}})
            source.copy(pos, bytes, size);
    };
}

void show(const char* name, const Times& times, const Times& least)
{
    std::printf("  %-34s %9.2f %9.2f %7.2f %7.2f\n", name, times.median, times.p95,
                times.median / least.median, times.p95 / least.p95);
}

bool show_file(const char* path)
{
    constexpr struct {
        const char* plain;
        const char* windows;
        int mode;
    } modes[] = {
        {"previous, a call for each read", "previous, framework's source", ZOFLV_SEEK_PREVIOUS},
        {"next, a call for each read", "next, framework's source", ZOFLV_SEEK_NEXT},
        {"closest, a call for each read", "closest, framework's source", ZOFLV_SEEK_CLOSEST},
    };
    const OpenFile file(path);
    PlainReads plain{file};
    _ZOCMN_MFAL plain_mfal = plain_record(&plain);
    std::string error;
    const auto source = zoflv_host::FileDataSource::open(path, &error);
    if (!source)
        return false;
    android::DataSourceHelper helper(source->record());
    _ZOCMN_MFAL mfal;
    zocmn_mfal_init(&mfal, &helper);
    bool opened = false;
    {
        const Demuxer over_plain(&plain_mfal);
        const Demuxer over_windows(&mfal);
        opened = over_plain && over_windows;
        if (opened) {
            std::printf("%s, %s\n  %-34s %9s %9s %7s %7s\n", path,
                        over_plain.indexed() ? "with an index" : "without an index", "", "median",
                        "p95", "/ bare", "/ bare");
            const int64_t duration = over_plain.duration_ms();
            const Times least = measure(bare(plain, duration, over_plain.indexed()), duration);
            show("bare, a call for each read", least, least);
            for (const auto& m : modes) {
                show(m.plain, measure(over_plain.seek(m.mode), duration), least);
                show(m.windows, measure(over_windows.seek(m.mode), duration), least);
            }
        }
    }
    zocmn_mfal_deinit(&mfal);
    return opened;
}

} // namespace

int main(int argc, char** argv)
{
    bool good = argc > 1;
    for (int i = 1; i < argc; ++i) {
        if (show_file(argv[i]))
            continue;
        std::fprintf(stderr, "%s: not readable as FLV with video\n", argv[i]);
        good = false;
    }
    return good ? 0 : 1;
}
