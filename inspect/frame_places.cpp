// SPDX-License-Identifier: Apache-2.0
#include "inspect/frame_places.h"

namespace zoflv_inspect {

namespace {

constexpr size_t look_ahead = 256; // tags of the kind
constexpr int64_t us_per_ms = 1000;

} // namespace

/// Goes on to the next tag of the kind that gives a frame. False at the end of the file.
bool FramePlaces::pull()
{
    while (const Item* const item = m_walker.next()) {
        if (item->kind != ItemKind::TAG)
            continue;
        const Tag& tag = item->tag;
        if (m_kind == Kind::VIDEO ? !tag.video() : !tag.audio())
            continue;
        const auto frame = m_rules.expect(tag, m_walker);
        if (frame && frame->offset >= m_from) {
            m_waiting.push_back({*frame, tag.pts_ms() * us_per_ms});
            return true;
        }
    }
    return false;
}

void FramePlaces::drop_front()
{
    const ExpectedFrame& frame = m_waiting.front().frame;
    if (frame.counts && !m_missing)
        m_missing = frame.offset;
    m_waiting.pop_front();
}

std::optional<FramePlace> FramePlaces::find(int64_t time_us, uint64_t size)
{
    std::optional<size_t> found;
    for (size_t i = 0; i < m_waiting.size() || (i < look_ahead && pull()); ++i) {
        const ExpectedFrame& frame = m_waiting[i].frame;
        // Configurations, which need not come, can look like the frame after them.
        if (frame.dts_ms * us_per_ms == time_us && frame.size == size && (!found || frame.counts))
            found = i;
        if (found && frame.counts)
            break;
    }
    if (!found)
        return std::nullopt;
    for (size_t i = *found; i > 0; --i)
        drop_front();
    const Waiting& waiting = m_waiting.front();
    const FramePlace place{waiting.frame.offset, waiting.pts_us, waiting.frame.keyframe};
    m_waiting.pop_front();
    return place;
}

std::optional<int64_t> FramePlaces::first_missing()
{
    while (!m_missing && (!m_waiting.empty() || pull()))
        drop_front();
    return m_missing;
}

} // namespace zoflv_inspect
