// SPDX-License-Identifier: Apache-2.0
#include "inspect/reasons.h"

#include <charconv>
#include <utility>

namespace zoflv_inspect {

namespace {

constexpr int check_empty_avc_tag = 982;
constexpr int check_avc_frame = 1146;
constexpr std::string_view demuxer = "zoflv/dmx/zoflvd";

bool starts_with(std::string_view text, std::string_view start)
{
    return text.substr(0, start.size()) == start;
}

std::string_view without_line_end(std::string_view text)
{
    return !text.empty() && text.back() == '\n' ? text.substr(0, text.size() - 1) : text;
}

/// The source and number of a line that ends in "[SOURCE: NUMBER]", or of "SOURCE:NUMBER CHECK(...".
bool parse_check(std::string_view text, std::string_view* source, int* check)
{
    const size_t open = text.rfind('[');
    size_t colon = text.rfind(": ");
    size_t digits = colon + 2;
    size_t begin = open + 1;
    if (open == text.npos || colon == text.npos || colon < open || text.back() != ']') {
        if (text.find(" CHECK(") == text.npos)
            return false;
        begin = 0;
        colon = text.find(':');
        digits = colon + 1;
    }
    *source = text.substr(begin, colon - begin);
    const char* const end = text.data() + text.size();
    return std::from_chars(text.data() + digits, end, *check).ec == std::errc();
}

bool is_check(const Reason* reason, int check)
{
    return reason && reason->check == check && reason->source == demuxer;
}

/// The demuxer's result code in a message of the plugin; 0 when there is none.
int code_in(std::string_view text)
{
    for (const std::string_view word : {"retval", "zoflvd_create() failed("}) {
        const size_t found = text.find(word);
        if (found == text.npos)
            continue;
        const size_t digits = text.find_first_of("-0123456789", found);
        int code = 0;
        if (digits != text.npos)
            std::from_chars(text.data() + digits, text.data() + text.size(), code);
        return code;
    }
    return 0;
}

} // namespace

const char* reason_kind_name(ReasonKind kind)
{
    constexpr const char* names[] = {"damage", "end", "limit", "storage", "memory", "misuse"};
    return names[static_cast<size_t>(kind)];
}

const Reason* find_reason(std::string_view tag, std::string_view text)
{
    text = without_line_end(text);
    std::string_view source;
    int check = 0;
    const bool is_numbered = parse_check(text, &source, &check);
    for (const Reason& row : reasons()) {
        const bool same = is_numbered
                              ? row.check == check && row.source == source
                              : !row.check && row.source == tag && starts_with(text, row.message);
        if (same)
            return &row;
    }
    return nullptr;
}

void ReasonLog::keep_last()
{
    m_before = std::exchange(m_now, {});
}

void ReasonLog::take(bool error, std::string_view tag, std::string_view text)
{
    if (tag == "ZoFLVExtractor") {
        const int code = code_in(text);
        if (code != 0) {
            m_now.any = true;
            m_now.plugin_code = code;
        }
    }
    if (!error)
        return;
    m_now.any = true;
    const Reason* reason = find_reason(tag, text);
    ++m_now.errors;
    // Its lines are these two; what a caller then logs says nothing of the tag.
    if (m_now.errors == 1)
        m_now.empty_avc_tag = is_check(reason, check_empty_avc_tag);
    else if (m_now.errors == 2)
        m_now.empty_avc_tag = m_now.empty_avc_tag && is_check(reason, check_avc_frame);

    const ReasonRank rank = reason ? reason->rank : ReasonRank::CAUSE;
    if (m_now.has_cause && rank >= m_now.rank)
        return;
    m_now.has_cause = true;
    m_now.rank = rank;
    m_now.cause = reason;
    m_now.unknown = reason ? std::string() : std::string(without_line_end(text));
}

const ReasonLog::Taken& ReasonLog::chosen() const
{
    if (!m_before.has_cause || (m_now.has_cause && m_now.rank < m_before.rank))
        return m_now;
    return m_before;
}

const Reason* ReasonLog::cause() const
{
    return chosen().cause;
}

std::string ReasonLog::cause_text() const
{
    const Taken& taken = chosen();
    if (!taken.has_cause)
        return {};
    return taken.cause ? taken.cause->text : taken.unknown;
}

} // namespace zoflv_inspect
