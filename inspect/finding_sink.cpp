// SPDX-License-Identifier: Apache-2.0
#include "inspect/finding_sink.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

namespace zoflv_inspect {

std::string format(const char* text, ...)
{
    char buffer[256]; // longer details are cut
    va_list args;
    va_start(args, text);
    std::vsnprintf(buffer, sizeof buffer, text, args);
    va_end(args);
    return buffer;
}

std::string seconds_text(double milliseconds)
{
    return format("%.3f s", milliseconds / 1000);
}

Finding* FindingSink::add(Rule rule, StreamKind kind, int64_t offset, int64_t time_us)
{
    Finding& finding = m_findings[slot(rule, kind)];
    if (finding.count++ != 0)
        return nullptr;
    finding.rule = rule;
    finding.level = rule_of(rule).level;
    finding.kind = kind;
    finding.explains = rule_of(rule).explains;
    finding.curable = rule_of(rule).curable;
    finding.offset = offset;
    finding.time_us = time_us;
    return &finding;
}

bool FindingSink::has(Rule rule, StreamKind kind) const
{
    return m_findings[slot(rule, kind)].count != 0;
}

bool FindingSink::explain(Rule rule, StreamKind kind)
{
    m_findings[slot(rule, kind)].explains = rule_of(rule).explains;
    return has(rule, kind);
}

std::vector<Finding> FindingSink::take()
{
    const auto none = [](const Finding& finding) { return finding.count == 0; };
    m_findings.erase(std::remove_if(m_findings.begin(), m_findings.end(), none), m_findings.end());
    return std::move(m_findings);
}

} // namespace zoflv_inspect
