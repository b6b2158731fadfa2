// SPDX-License-Identifier: Apache-2.0
#include "inspect/frame_matcher.h"

#include <algorithm>

namespace zoflv_inspect {

namespace {

constexpr size_t LOOK_AHEAD = 256; // tags of the kind
constexpr uint64_t MOST_FOREIGN =
    256; // frames; by then it is clear that the track is not the file's

} // namespace

bool FrameMatcher::same(const ExpectedFrame& expected, const DeliveredFrame& frame) const
{
    return expected.dts_ms * 1000 == frame.time_us && expected.size == frame.size &&
           (!m_codec || *m_codec == expected.codec || !expected.counts);
}

void FrameMatcher::expect(const ExpectedFrame& frame)
{
    m_count.expected += frame.counts;
    if (m_ended) {
        if (frame.counts && !m_unread)
            m_unread = frame;
        return;
    }
    m_waiting.push_back(frame);
    m_counting += frame.counts;
    if (!m_pending)
        return;
    if (same(frame, *m_pending)) {
        m_pending.reset();
        match(m_waiting.size() - 1);
    } else if (m_waiting.size() > LOOK_AHEAD) {
        drop_pending();
    }
}

void FrameMatcher::deliver(const DeliveredFrame& frame)
{
    if (frame.size == 0 || m_ended)
        return;
    if (m_pending)
        drop_pending();
    if (m_ended)
        return;
    for (size_t i = 0; i < m_waiting.size(); ++i) {
        if (same(m_waiting[i], frame))
            return match(i);
    }
    m_pending = frame;
    if (m_waiting.size() > LOOK_AHEAD)
        drop_pending();
}

// The frame of a waiting tag came: those before it will not.
void FrameMatcher::match(size_t index)
{
    uint64_t missing = 0;
    for (; index > 0; --index) {
        const ExpectedFrame& passed = m_waiting.front();
        if (passed.counts && missing++ == 0)
            note_gap(passed, passed.end);
        m_waiting.pop_front();
    }
    const ExpectedFrame matched = m_waiting.front();
    m_waiting.pop_front();
    m_count.missing += missing;
    m_counting -= missing + matched.counts;
    // A configuration that comes again is taken for the first one, which lies before what was strange.
    if (m_strange && matched.counts) {
        note_gap(matched, matched.offset);
        m_strange = false;
    }
    m_last = matched.offset;
    if (!matched.counts)
        return;
    ++m_count.delivered;
    if (!m_codec)
        m_codec = matched.codec;
}

void FrameMatcher::drop_pending()
{
    m_pending.reset();
    m_strange = true;
    m_count.gave_up = ++m_count.foreign >= MOST_FOREIGN;
    m_ended = m_ended || m_count.gave_up;
}

void FrameMatcher::note_gap(const ExpectedFrame& first, int64_t to)
{
    if (!m_count.first_gap)
        m_count.first_gap = FrameGap{m_last, to, first.dts_ms};
}

void FrameMatcher::finish(uint64_t more)
{
    if (m_pending)
        drop_pending();
    m_ended = true;
    m_count.expected += more;
    m_count.unread = m_count.expected - m_count.delivered - m_count.missing;
    const auto first = std::find_if(m_waiting.begin(), m_waiting.end(),
                                    [](const ExpectedFrame& waiting) { return waiting.counts; });
    if (first != m_waiting.end())
        m_unread = *first;
    if (m_unread)
        m_count.end_gap = FrameGap{m_last, m_unread->end, m_unread->dts_ms};
    else if (m_strange || more > 0)
        m_count.end_gap = FrameGap{m_last, INT64_MAX, 0};
}

} // namespace zoflv_inspect
