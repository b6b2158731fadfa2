// SPDX-License-Identifier: Apache-2.0
/// @file
/// Where the stand-in of the platform's log writes to.
///
/// Messages go to stderr as "<E|W|I> tag: text" lines, each in one write, or to a sink.
#pragma once

#include <functional>
#include <string>
#include <utility>

namespace zoflv_host {

/// Lowest priority written to stderr; ANDROID_LOG_WARN at the start of the program. One above
/// ANDROID_LOG_ERROR silences everything but a fatal message.
void set_log_level(int min_priority);
int log_level();

/// Gets every message, whatever its priority, with the text exactly as it was formatted.
using LogSink = std::function<void(int priority, const std::string& tag, const std::string& text)>;

/// Sends the messages to `sink` instead of stderr; an empty one restores stderr. A fatal message
/// goes to both. Calls of the sink never overlap, and none is under way any more when this returns.
/// The sink must not log, nor set a sink.
/// @return the sink before
LogSink set_log_sink(LogSink sink);

/// A sink for the length of a scope.
class ScopedLogSink {
public:
    explicit ScopedLogSink(LogSink sink) : m_before(set_log_sink(std::move(sink))) {}
    ~ScopedLogSink() { set_log_sink(std::move(m_before)); }
    ScopedLogSink(const ScopedLogSink&) = delete;
    ScopedLogSink& operator=(const ScopedLogSink&) = delete;

private:
    LogSink m_before;
};

} // namespace zoflv_host
