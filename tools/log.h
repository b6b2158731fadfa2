// SPDX-License-Identifier: Apache-2.0
/// @file
/// The demuxer's log, as the command uses it.
#pragma once

#include <zoflv_host/log.h>

#include <string>

/// Takes the log over while it lives: keeps the first error, since a result code alone does not
/// tell damage from the end of a stream, and shows every line on stderr when asked to.
class LogTap {
public:
    explicit LogTap(bool shown);

    bool shown() const { return m_shown; }
    void show(bool on) { m_shown = on; }

    /// Forgets the error kept.
    void reset() { m_first_error.clear(); }
    /// The first error since the last reset, empty when there was none. One of the read buffer or
    /// the metadata decoder gives way to any other: metadata may be broken in a file that opens,
    /// and who misses the buffer's bytes says what for.
    const std::string& first_error() const { return m_first_error; }

private:
    void take(int prio, const std::string& tag, const std::string& text);

    bool m_shown;
    bool m_minor = false; ///< the error kept is one that gives way
    std::string m_first_error;
    zoflv_host::ScopedLogSink m_sink;
};
