// SPDX-License-Identifier: Apache-2.0
/// @file
/// The log of the demuxer and the plugin, as the command uses it.
#pragma once

#include "inspect/reasons.h"

#include <zoflv_host/log.h>

#include <string>

/// Takes the log over while it lives: keeps what went wrong, since a result code alone does not tell
/// damage from the end of a stream, and shows every line on stderr when asked to.
class LogTap {
public:
    explicit LogTap(bool shown);

    bool shown() const { return m_shown; }
    void show(bool on) { m_shown = on; }

    /// Where lines are kept from now on, and what everything below is about: of tracks that are read
    /// in turn each has its own. Null: the tap's.
    void keep_in(zoflv_inspect::ReasonLog* reasons) { m_reasons = reasons ? reasons : &m_own; }

    void reset() { m_reasons->reset(); }
    void step() { m_reasons->step(); }

    /// What went wrong, in words; empty when nothing was logged as an error.
    std::string cause() const { return m_reasons->cause_text(); }
    bool empty_avc_tag() const { return m_reasons->empty_avc_tag(); }
    /// The demuxer's result code in the plugin's last message since the last step, 0 when there was
    /// none.
    int plugin_code() const { return m_reasons->plugin_code(); }

private:
    void take(int prio, const std::string& tag, const std::string& text);

    bool m_shown;
    zoflv_inspect::ReasonLog m_own;
    zoflv_inspect::ReasonLog* m_reasons = &m_own;
    zoflv_host::ScopedLogSink m_sink;
};
