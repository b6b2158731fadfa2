// SPDX-License-Identifier: Apache-2.0
#include "inspect/finding_detectors.h"

#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <numeric>

namespace zoflv_inspect {

namespace {

constexpr int64_t STEP_24 = 1 << 24;   // ms: where a time without its highest byte begins again
constexpr int64_t WRAP_SLACK = 60'000; // ms about a wrap
constexpr uint32_t NEAR_END = UINT32_MAX - 60'000;
constexpr int64_t LARGE_STEP_BACK = 1000; // ms
constexpr int64_t JUMP = 10'000;          // ms
constexpr int64_t LATE_START = 1000;      // ms
constexpr double DRIFT = 1000;            // ms

// The same difference of two ways to measure a duration is no finding: frames have a length, and
// streams do not end at once.
double duration_slack(double end_ms)
{
    return std::clamp(end_ms * 0.04, 50.0, 1000.0);
}

double mean(const std::vector<int64_t>& values)
{
    const int64_t sum = std::accumulate(values.begin(), values.end(), int64_t{0});
    return static_cast<double>(sum) / static_cast<double>(values.size());
}

} // namespace

void TimeCheck::see(const Tag& tag)
{
    if (tag.body.packet != Packet::FRAME)
        return; // configurations and ends have times of their own
    Stream& stream = tag.audio() ? m_audio : m_video;
    if (tag.dts_ms() < 0) {
        if (Finding* finding = m_sink.add(Rule::TIME_NEGATIVE, tag))
            finding->detail = seconds_text(static_cast<double>(tag.dts_ms()));
    }
    if (stream.any) {
        check_step(stream, tag);
    } else {
        stream.any = true;
        stream.first = tag.time;
        stream.first_offset = tag.offset;
    }
    stream.last = tag.time;
    m_end_ms = std::max(m_end_ms, tag.dts_ms());
    measure_distance(tag);
}

void TimeCheck::check_step(const Stream& stream, const Tag& tag)
{
    const int64_t before = static_cast<int32_t>(stream.last);
    const int64_t step = tag.dts_ms() - before;
    Rule rule;
    if (stream.last > NEAR_END && tag.time < WRAP_SLACK) {
        if (stream.first > NEAR_END) // it began below 0
            return;
        rule = Rule::TIME_WRAP32;
    } else if (before > INT32_MAX - WRAP_SLACK && tag.dts_ms() < INT32_MIN + WRAP_SLACK) {
        return; // goes on, read as negative
    } else if (std::abs(step + STEP_24) <= WRAP_SLACK) {
        rule = Rule::TIME_WRAP24;
    } else if (step < -LARGE_STEP_BACK) {
        rule = Rule::TIME_RESET;
    } else if (step <= 0) {
        rule = step < 0 ? Rule::TIME_BACK : Rule::TIME_REPEAT;
    } else if (step > JUMP) {
        rule = Rule::TIME_JUMP;
    } else {
        return;
    }
    if (Finding* finding = m_sink.add(rule, tag))
        finding->detail = step == 0 ? seconds_text(static_cast<double>(before))
                                    : "from " + seconds_text(static_cast<double>(before)) + " to " +
                                          seconds_text(static_cast<double>(tag.dts_ms()));
}

// Audio and video are written about when they happen: how far they are from each other tells, where
// the tags change from one to the other, whether they stay together.
void TimeCheck::measure_distance(const Tag& tag)
{
    const StreamKind kind = kind_of(tag);
    const bool changes = m_before != StreamKind::FILE && m_before != kind;
    m_before = kind;
    if (!changes)
        return;
    const int64_t distance =
        int64_t{static_cast<int32_t>(m_audio.last)} - static_cast<int32_t>(m_video.last);
    if (m_distance_first.size() < WINDOW)
        m_distance_first.push_back(distance);
    else if (m_distance_last.size() < WINDOW)
        m_distance_last.push_back(distance);
    else
        m_distance_last[m_distances % WINDOW] = distance;
    ++m_distances;
}

void TimeCheck::finish(double duration_ms)
{
    if (!m_audio.any && !m_video.any)
        return;
    check_start();
    check_duration(duration_ms);
    check_drift();
}

void TimeCheck::check_start()
{
    const bool audio_first =
        m_audio.any &&
        (!m_video.any || static_cast<int32_t>(m_audio.first) < static_cast<int32_t>(m_video.first));
    const Stream& stream = audio_first ? m_audio : m_video;
    const int64_t start = static_cast<int32_t>(stream.first);
    if (start <= LATE_START)
        return;
    if (Finding* finding =
            m_sink.add(Rule::TIME_START, StreamKind::FILE, stream.first_offset, start * 1000))
        finding->detail = "the first time is " + seconds_text(static_cast<double>(start));
}

void TimeCheck::check_duration(double duration_ms)
{
    if (!(duration_ms > 0) || m_sink.has(Rule::DURATION_ABSURD, StreamKind::FILE))
        return; // said already
    for (const StreamKind kind : {StreamKind::AUDIO, StreamKind::VIDEO}) {
        if (m_sink.has(Rule::TIME_WRAP24, kind) || m_sink.has(Rule::TIME_WRAP32, kind))
            return; // the largest time is not the end
    }
    const auto end = static_cast<double>(m_end_ms);
    const double slack = duration_slack(end);
    const bool is_short = duration_ms < end - slack;
    const bool is_long = duration_ms > end + std::max(2000.0, end * 0.05);
    // From the first time to the last it may be right.
    const double start = static_cast<double>(
        std::min(m_audio.any ? static_cast<int32_t>(m_audio.first) : INT32_MAX,
                 m_video.any ? static_cast<int32_t>(m_video.first) : INT32_MAX));
    const bool since_start = m_sink.has(Rule::TIME_START, StreamKind::FILE) &&
                             std::abs(end - start - duration_ms) <= slack;
    if ((!is_short && !is_long) || since_start)
        return;
    const Rule rule = is_short ? Rule::DURATION_SHORT : Rule::DURATION_LONG;
    if (Finding* finding = m_sink.add(rule, StreamKind::FILE))
        finding->detail =
            "the file says " + seconds_text(duration_ms) + " and has " + seconds_text(end);
}

void TimeCheck::check_drift()
{
    if (m_distance_last.size() < WINDOW)
        return; // too short to tell
    for (const StreamKind kind : {StreamKind::AUDIO, StreamKind::VIDEO}) {
        for (const Rule rule : {Rule::TIME_RESET, Rule::TIME_WRAP24, Rule::TIME_WRAP32,
                                Rule::TIME_JUMP, Rule::TIME_NEGATIVE})
            if (m_sink.has(rule, kind))
                return; // a step, and no drift
    }
    const double drift = mean(m_distance_last) - mean(m_distance_first);
    if (std::abs(drift) < DRIFT)
        return;
    if (Finding* finding = m_sink.add(Rule::SYNC_DRIFT, StreamKind::FILE))
        finding->detail = "by " + seconds_text(std::abs(drift)) + " from the beginning to the end";
}

} // namespace zoflv_inspect
