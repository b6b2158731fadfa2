// SPDX-License-Identifier: Apache-2.0
/// @file
/// The log of the demuxer and the plugin, as the command uses it.
#pragma once

#include <zoflv_host/log.h>

#include <string>
#include <utility>

/// Takes the log over while it lives: keeps the first error, since a result code alone does not
/// tell damage from the end of a stream, and shows every line on stderr when asked to.
class LogTap {
public:
    explicit LogTap(bool shown);

    bool shown() const { return m_shown; }
    void show(bool on) { m_shown = on; }

    /// Forgets what was kept.
    void reset() { m_before = m_now = {}; }
    /// Begins the read of a frame: forgets what was kept before the last one began. What the look
    /// ahead at the end of a read runs into shows as the end of the stream only in the next.
    void step() { m_before = std::exchange(m_now, {}); }

    /// The first error kept, empty when there was none. One of the read buffer or the metadata
    /// decoder gives way to any other: metadata may be broken in a file that opens, and who misses
    /// the buffer's bytes says what for.
    const std::string& first_error() const;
    /// Whether the first errors since the last step are those that an AVC tag without payload
    /// leaves.
    bool empty_avc_tag() const;
    /// The demuxer's result code in the plugin's last message since the last step, 0 when there was
    /// none.
    int plugin_code() const { return m_now.plugin_code; }

private:
    struct Kept {
        std::string error;
        bool minor = false; ///< the error gives way
        int count = 0;      ///< errors
        std::string head;   ///< the first two
        int plugin_code = 0;
    };
    void take(int prio, const std::string& tag, std::string text);

    bool m_shown;
    Kept m_before, m_now;
    zoflv_host::ScopedLogSink m_sink;
};
