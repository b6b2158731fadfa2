// SPDX-License-Identifier: Apache-2.0
#include "inspect/repair_again.h"

namespace zoflv_inspect {

RepairAgain::RepairAgain(const TimeRules& rules)
    : m_rules(rules), m_times(rules), m_merge([](const OutTag&) {})
{}

void RepairAgain::see(const OutTag& tag)
{
    if (tag.frame)
        m_times.see_frame(tag.lane(), static_cast<int64_t>(m_count), tag.time);
    if (tag.in_stream())
        m_queue = tag.queue;
    OutTag again = tag;
    again.queue = m_queue;
    again.number = m_count++;
    m_keys.set(0, 0, &again);
    m_merge.add(again);
}

void RepairAgain::finish()
{
    m_times.finish();
    m_merge.finish();
}

bool RepairAgain::settled() const
{
    const bool one = m_times.segments().size() == 1;
    if (!m_rules.keep_times && (!one || m_times.wraps() > 0 || m_times.segments()[0].shift != 0))
        return false;
    const bool merged = one && m_times.segments()[0].backward == 0 && m_merge.late().empty();
    return !merged || m_merge.moved() == 0;
}

} // namespace zoflv_inspect
