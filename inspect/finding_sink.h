// SPDX-License-Identifier: Apache-2.0
/// @file
/// Where detectors put what they find.
#pragma once

#include "inspect/findings.h"
#include "inspect/tag.h"

#include <cstdint>
#include <string>
#include <vector>

namespace zoflv_inspect {

/// printf into a string.
std::string format(const char* text, ...) __attribute__((format(printf, 1, 2)));

/// "12.345 s" of milliseconds.
std::string seconds_text(double milliseconds);

inline StreamKind kind_of(const Tag& tag)
{
    return tag.audio() ? StreamKind::AUDIO : tag.video() ? StreamKind::VIDEO : StreamKind::FILE;
}

/// Keeps one finding for each rule and kind of stream, so that memory is bounded, and counts.
class FindingSink {
public:
    /// @return the finding, to add details to; null when it is not the first of its rule and kind
    Finding* add(Rule rule, StreamKind kind, int64_t offset = NO_OFFSET, int64_t time_us = NO_TIME);
    Finding* add(Rule rule, const Tag& tag) { return add(rule, kind_of(tag), tag); }
    Finding* add(Rule rule, StreamKind kind, const Tag& tag)
    {
        return add(rule, kind, tag.offset, tag.dts_ms() * 1000);
    }
    /// The same with a detail that costs nothing to make.
    void add(Rule rule, const Tag& tag, const char* detail)
    {
        if (Finding* finding = add(rule, tag))
            finding->detail = detail;
    }

    bool has(Rule rule, StreamKind kind) const;
    /// Lets a finding explain all that its rule can.
    /// @return whether there is one
    bool explain(Rule rule, StreamKind kind);
    /// All of them, by rule.
    std::vector<Finding> take();

private:
    static constexpr size_t KINDS = 3;

    size_t slot(Rule rule, StreamKind kind) const
    {
        return static_cast<size_t>(rule) * KINDS + static_cast<size_t>(kind);
    }

    std::vector<Finding> m_findings = std::vector<Finding>(RULE_COUNT * KINDS);
};

} // namespace zoflv_inspect
