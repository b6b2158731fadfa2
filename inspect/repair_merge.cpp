// SPDX-License-Identifier: Apache-2.0
#include "inspect/repair_merge.h"

#include <algorithm>
#include <tuple>

namespace zoflv_inspect {

namespace {

bool before(const OutTag& a, const OutTag& b)
{
    return std::tie(a.segment, a.key, a.number) < std::tie(b.segment, b.key, b.number);
}

/// What holding a tag counts for: small ones take more as a record than in the file.
size_t weight(const OutTag& tag)
{
    return std::max<size_t>(tag.size, sizeof tag);
}

} // namespace

void OrderKeys::set(size_t segment, int64_t start, OutTag* tag)
{
    Last& last = m_last[tag->queue];
    const bool same = last.any && last.segment == segment;
    tag->segment = segment;
    if (tag->frame)
        tag->key = tag->time;
    else if (!tag->in_stream())
        tag->key = same ? last.key : start;
    else
        tag->key = same ? std::max<int64_t>(last.key, tag->time) : tag->time;
    last = {true, segment, tag->key};
}

void RepairMerge::give(size_t queue)
{
    const OutTag tag = m_queues[queue].front();
    m_queues[queue].pop_front();
    m_held -= weight(tag);
    if (tag.number < m_next)
        ++m_moved;
    m_next = std::max(m_next, tag.number + 1);
    m_sink(tag);
}

void RepairMerge::add(const OutTag& tag)
{
    const size_t other = 1U - tag.queue;
    if (m_any_forced[other] && before(tag, m_forced[other]))
        m_late.insert(m_forced[other].segment);
    m_queues[tag.queue].push_back(tag);
    m_held += weight(tag);
    while (!m_queues[0].empty() && !m_queues[1].empty())
        give(before(m_queues[0].front(), m_queues[1].front()) ? 0 : 1);
    while (m_held > MERGE_WINDOW) {
        const OutTag& first = m_queues[tag.queue].front();
        if (!m_any_forced[tag.queue] || before(m_forced[tag.queue], first))
            m_forced[tag.queue] = first;
        m_any_forced[tag.queue] = true;
        give(tag.queue);
    }
}

void RepairMerge::finish()
{
    for (size_t queue = 0; queue < m_queues.size(); ++queue) {
        while (!m_queues[queue].empty())
            give(queue);
    }
}

} // namespace zoflv_inspect
