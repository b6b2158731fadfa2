// SPDX-License-Identifier: Apache-2.0
/// @file
/// Where the log of the installed demuxer library goes. Only that library has this: in the plugin and
/// the command the demuxer writes to the platform's log.
#pragma once

#pragma GCC visibility push(default)

/// Priorities of log lines.
enum : int {
    ZOFLV_LOG_INFO = 4,
    ZOFLV_LOG_WARN = 5, ///< the demuxer goes on with less
    ZOFLV_LOG_ERROR =
        6, ///< every failure, logged where it is found and by each caller that gives up
};

/// Takes one line of the log. Called on the thread that called the demuxer, several at a time when
/// several do; must not throw.
/// @param priority  one of those above
/// @param tag       name of the module, such as "zoflvd"
/// @param text      the line, without a line end, cut after 511 bytes; valid during the call
using zoflv_log_fn = void (*)(int priority, const char* tag, const char* text);

/// Sets the function that takes the log, for all threads from now on; null, as at the start: nothing
/// is logged. May be called at any time; a call of the function before may still be running then.
/// @return the function set before
zoflv_log_fn zoflv_set_log(zoflv_log_fn log);

#pragma GCC visibility pop
