// SPDX-License-Identifier: Apache-2.0
/// @file
/// What the log lines of the demuxer and the plugin mean, in words for who has the file.
///
/// A result code alone does not tell damage from the end of a stream; the line that was logged where
/// the failure was found does. A check line, "assert!, [SOURCE: NUMBER]", is looked up by source and
/// number, any other line by its text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace zoflv_inspect {

enum class ReasonKind : uint8_t {
    DAMAGE,  ///< the file's content is wrong or cut
    END,     ///< nothing is wrong: there is no more, or not there
    LIMIT,   ///< the content is more, or other, than the demuxer takes
    STORAGE, ///< the file cannot be positioned or read
    MEMORY,  ///< memory could not be allocated
    MISUSE,  ///< a caller's mistake, not the file's
};

/// "damage", "end", "limit", "storage", "memory" or "misuse".
const char* reason_kind_name(ReasonKind kind);

/// How much a line tells beside the others of the same failure.
enum class ReasonRank : uint8_t {
    CAUSE,  ///< what went wrong
    DETAIL, ///< a read that a caller missed: the caller's line tells more, if there is one
    ECHO,   ///< a caller gives up: the lines before it tell why
};

struct Reason {
    const char* source;  ///< of a check: "zoflv/dmx/zoflvd"; of any other line: its log tag
    int check;           ///< the check's number; 0: the line is known by its text
    const char* message; ///< without a check: how the text begins; null otherwise
    ReasonKind kind;
    ReasonRank rank;
    const char* text; ///< what happened: part of a sentence, without a full stop
};

/// All reasons; checks in the order of source and number.
struct ReasonTable {
    const Reason* first;
    size_t count;
    const Reason* begin() const { return first; }
    const Reason* end() const { return first + count; }
};
ReasonTable reasons();

/// How the log names it: "[zoflv/dmx/zoflvd: 720]", or tag and beginning of the line.
std::string reason_name(const Reason& reason);
/// All of them, as docs/log.md.
std::string reasons_document();

/// What a line of the log means, or null when no row has it.
/// @param tag   the log tag it came with
/// @param text  as it was logged
const Reason* find_reason(std::string_view tag, std::string_view text);

/// Follows the log during a piece of work and tells what went wrong in it.
///
/// A frame's read runs into what its look ahead finds, though this shows as the end of the stream
/// only in the next read: the lines of the read before count too.
class ReasonLog {
public:
    /// One line, of error priority or of the plugin.
    void take(bool error, std::string_view tag, std::string_view text);

    /// Forgets everything: other work begins.
    void reset() { m_before = m_now = {}; }
    /// The next read of the same track begins: forgets what was taken before the last step. Costs
    /// nothing while nothing goes wrong, as for nearly every frame.
    void step()
    {
        if (m_now.any || m_before.any)
            keep_last();
    }

    /// What went wrong, null when no error was taken.
    const Reason* cause() const;
    /// cause() in words, empty when there is none; an unknown line as it was logged.
    std::string cause_text() const;
    /// Whether the last read met an AVC tag without payload, as encoders write it at the end.
    bool empty_avc_tag() const { return m_now.empty_avc_tag; }
    /// The demuxer's result code in the plugin's last message since the last step; 0: none.
    int plugin_code() const { return m_now.plugin_code; }

private:
    struct Taken {
        bool any = false; ///< anything below is set
        int errors = 0;
        const Reason* cause = nullptr;
        bool has_cause = false;
        ReasonRank rank = ReasonRank::ECHO;
        std::string unknown; ///< the line of a cause that no row has
        bool empty_avc_tag = false;
        int plugin_code = 0;
    };
    void keep_last();
    const Taken& chosen() const;

    Taken m_before, m_now;
};

} // namespace zoflv_inspect
