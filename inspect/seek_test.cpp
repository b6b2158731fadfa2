// SPDX-License-Identifier: Apache-2.0
#include "inspect/seek_test.h"

#include <algorithm>
#include <cstdlib>
#include <media/MediaExtractorPluginHelper.h>
#include <random>

namespace zoflv_inspect {

namespace {

using zoflv_host::ReadResult;
using ReadOptions = android::MediaTrackHelper::ReadOptions;

constexpr struct {
    const char* name;
    uint32_t value;
} MODES[SEEK_MODE_COUNT] = {
    {"previous", ReadOptions::SEEK_PREVIOUS_SYNC},
    {"next", ReadOptions::SEEK_NEXT_SYNC},
    {"closest-sync", ReadOptions::SEEK_CLOSEST_SYNC},
    {"closest", ReadOptions::SEEK_CLOSEST},
};

constexpr int64_t LATE_US = 100000;         // a landing may be so much after the target
constexpr int64_t AUDIO_EARLY_US = 1000000; // and audio so much before it
constexpr size_t KEYFRAMES_EARLY = 2;       // and video by so many keyframes more than needed
constexpr int AUDIO_STEP_MS = 10;
constexpr int MOST_EXTRAS = 16; // before the first frame after a seek

} // namespace

const char* name_of(SeekMode mode)
{
    return MODES[static_cast<size_t>(mode)].name;
}

size_t SeekTest::hits() const
{
    return static_cast<size_t>(std::count_if(landings.begin(), landings.end(),
                                             [](const SeekLanding& one) { return one.hit; }));
}

void SyncPoints::add(const ExpectedFrame& frame)
{
    const auto dts_ms = static_cast<int32_t>(frame.dts_ms);
    if (!frame.counts) {
        m_extras.emplace_back(dts_ms, frame.size);
        return;
    }
    m_first_ms = m_any ? std::min(m_first_ms, frame.dts_ms) : frame.dts_ms;
    m_last_ms = m_any ? std::max(m_last_ms, frame.dts_ms) : frame.dts_ms;
    m_any = true;
    if (m_kind == Kind::VIDEO) {
        if (frame.keyframe)
            m_points.emplace_back(dts_ms, frame.size);
    } else if (m_times.empty() || std::abs(frame.dts_ms - m_times.back()) >= AUDIO_STEP_MS) {
        m_times.push_back(dts_ms);
    }
}

void SyncPoints::finish()
{
    std::sort(m_points.begin(), m_points.end());
    std::sort(m_extras.begin(), m_extras.end());
    for (const Point& point : m_points)
        m_times.push_back(point.first);
    std::sort(m_times.begin(), m_times.end());
    m_times.erase(std::unique(m_times.begin(), m_times.end()), m_times.end());
}

std::optional<int64_t> SyncPoints::time_at(size_t index) const
{
    return index < m_times.size() ? std::optional(int64_t{m_times[index]} * 1000) : std::nullopt;
}

// The first point at or after a time, by index.
size_t SyncPoints::first_from(int64_t time_us) const
{
    const auto found =
        std::lower_bound(m_times.begin(), m_times.end(), time_us,
                         [](int32_t ms, int64_t us) { return int64_t{ms} * 1000 < us; });
    return static_cast<size_t>(found - m_times.begin());
}

// The number of points at or before a time.
size_t SyncPoints::count_to(int64_t time_us) const
{
    return first_from(time_us + 1);
}

std::optional<int64_t> SyncPoints::ideal_us(SeekMode mode, int64_t target_us) const
{
    const auto before = time_at(count_to(target_us) - 1); // of none it is an index past all
    const auto after = time_at(first_from(target_us));
    if (mode == SeekMode::NEXT)
        return after;
    if (mode != SeekMode::CLOSEST_SYNC || !after || !before)
        return mode == SeekMode::CLOSEST_SYNC && !before ? after : before;
    return *after - target_us < target_us - *before ? after : before;
}

bool SyncPoints::near_sync(SeekMode mode, int64_t target_us, int64_t landed_us) const
{
    const size_t landed = first_from(landed_us);
    const size_t after = first_from(target_us);
    const size_t before_end = count_to(target_us);
    switch (mode) {
    case SeekMode::NEXT:
        return landed == after || landed == after + 1;
    case SeekMode::CLOSEST_SYNC:
        return landed == after || landed + 1 == before_end;
    case SeekMode::PREVIOUS:
    case SeekMode::CLOSEST:
        break;
    }
    return landed < before_end ? before_end - landed <= KEYFRAMES_EARLY + 1
                               : landed_us - target_us <= LATE_US;
}

bool SyncPoints::hit(SeekMode mode, int64_t target_us,
                     const std::optional<DeliveredFrame>& landed) const
{
    if (!landed)
        return mode == SeekMode::NEXT && !ideal_us(mode, target_us);
    if (m_kind == Kind::AUDIO)
        return landed->time_us >= target_us - AUDIO_EARLY_US &&
               landed->time_us <= target_us + LATE_US;
    const Point point(static_cast<int32_t>(landed->time_us / 1000),
                      static_cast<uint32_t>(landed->size));
    return int64_t{point.first} * 1000 == landed->time_us &&
           std::binary_search(m_points.begin(), m_points.end(), point) &&
           near_sync(mode, target_us, landed->time_us);
}

bool SyncPoints::is_extra(const DeliveredFrame& frame) const
{
    const Point point(static_cast<int32_t>(frame.time_us / 1000),
                      static_cast<uint32_t>(frame.size));
    return frame.size == 0 || std::binary_search(m_extras.begin(), m_extras.end(), point);
}

std::vector<int64_t> SyncPoints::targets(int count, uint64_t seed) const
{
    constexpr int64_t tested_per_cent =
        95;                         // after that many a plugin finds nothing, and rightly so
    constexpr int64_t parts = 1000; // of a target's share of the track
    constexpr int64_t us_per_ms = 1000;
    std::vector<int64_t> targets;
    const int64_t tested_us = (m_last_ms - m_first_ms) * 1000 * tested_per_cent / 100;
    std::mt19937_64 random(seed);
    for (int64_t i = 0; m_any && i < count; ++i) {
        const int64_t place = i * parts + static_cast<int64_t>(random() % parts);
        // In two steps: the product of all would not fit for the longest tracks and many targets.
        const int64_t share = tested_us / (count * parts);
        const int64_t rest = tested_us % (count * parts) * place / (count * parts);
        const int64_t target_us = m_first_ms * us_per_ms + share * place + rest;
        targets.push_back(std::max<int64_t>(target_us, 0) / us_per_ms * us_per_ms);
    }
    return targets;
}

namespace {

std::optional<DeliveredFrame> frame_of(const ReadResult& result)
{
    if (!result.sample)
        return std::nullopt;
    return DeliveredFrame{result.sample.time_us().value_or(0), result.sample.size()};
}

} // namespace

SeekTest run_seeks(zoflv_host::Track& track, const zoflv_host::DataSource& source,
                   const SyncPoints& points, SeekMode mode, const std::vector<int64_t>& targets,
                   const SeekTest* beside)
{
    SeekMeter meter(track, source);
    SeekTest test;
    test.mode = mode;
    for (const int64_t target_us : targets) {
        SeekLanding landing;
        landing.target_us = target_us;
        landing.ideal_us = points.ideal_us(mode, target_us);
        meter.start();
        ReadResult result = track.seek_read(target_us, MODES[static_cast<size_t>(mode)].value);
        meter.stop();
        landing.status = result.status;
        std::optional<DeliveredFrame> frame = frame_of(result);
        for (int i = 0; frame && points.is_extra(*frame) && i < MOST_EXTRAS; ++i) {
            result.sample.release(); // the track has one buffer
            result = track.read();
            frame = frame_of(result);
        }
        if (frame)
            landing.landed_us = frame->time_us;
        landing.hit = points.hit(mode, target_us, frame);
        if (beside && !landing.hit) {
            const auto& video = beside->landings.at(test.landings.size()).landed_us;
            landing.hit = video && points.hit(mode, *video, frame);
        }
        landing.seek = meter.seek();
        landing.frame = meter.frame();
        test.landings.push_back(landing);
    }
    return test;
}

} // namespace zoflv_inspect
