// SPDX-License-Identifier: Apache-2.0
#include <android/log.h>
#include <zoflv_host/log.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <new>
#include <unistd.h>

namespace {

constexpr int LOG_FATAL = 7;

struct LogState {
    std::atomic<int> level{ANDROID_LOG_WARN};
    std::mutex mutex; // guards the sink and every call of it
    zoflv_host::LogSink sink;
};

/// Never destroyed: destructors of other objects may still log.
LogState& log_state()
{
    static auto& state = *new LogState;
    return state;
}

std::string format_text(const char* fmt, va_list args)
{
    char small[512];
    va_list again;
    va_copy(again, args);
    const int length = std::vsnprintf(small, sizeof small, fmt, args);
    std::string text;
    if (length < 0) {
        text = fmt; // not formattable: better the bare format than nothing
    } else if (static_cast<size_t>(length) < sizeof small) {
        text.assign(small, static_cast<size_t>(length));
    } else {
        text.resize(static_cast<size_t>(length));
        std::vsnprintf(text.data(), text.size() + 1, fmt, again);
    }
    va_end(again);
    return text;
}

void write_line(int priority, const std::string& tag, const std::string& text)
{
    const char letter = priority >= LOG_FATAL           ? 'F'
                        : priority == ANDROID_LOG_ERROR ? 'E'
                        : priority == ANDROID_LOG_WARN  ? 'W'
                                                        : 'I';
    std::string line = std::string(1, letter) + ' ' + tag + ": " + text;
    while (line.back() == '\n')
        line.pop_back();
    line += '\n';
    // One write for each line, past stdio, so that lines of several threads do not mix.
    for (size_t done = 0; done < line.size();) {
        const ssize_t n = ::write(STDERR_FILENO, line.data() + done, line.size() - done);
        if (n <= 0)
            return; // nobody left to tell
        done += static_cast<size_t>(n);
    }
}

} // namespace

namespace zoflv_host {

void set_log_level(int min_priority)
{
    log_state().level = min_priority;
}

int log_level()
{
    return log_state().level;
}

LogSink set_log_sink(LogSink sink)
{
    std::lock_guard lock(log_state().mutex);
    log_state().sink.swap(sink);
    return sink;
}

} // namespace zoflv_host

// A message is lost when memory runs out: an exception would leave a plugin's locks locked.
int __android_log_print(int prio, const char* tag, const char* fmt, ...)
try {
    LogState& state = log_state();
    std::unique_lock lock(state.mutex);
    if (!state.sink && prio < state.level)
        return 0;
    va_list args;
    va_start(args, fmt);
    const std::string text = format_text(fmt, args);
    va_end(args);
    const std::string name = tag ? tag : "";
    if (state.sink)
        state.sink(prio, name, text);
    else
        write_line(prio, name, text);
    return static_cast<int>(text.size());
} catch (const std::bad_alloc&) {
    return -1;
}

void __android_log_assert(const char* cond, const char* tag, const char* fmt, ...)
{
    std::string text = std::string("Assertion failed: ") + (cond ? cond : "");
    if (fmt) {
        va_list args;
        va_start(args, fmt);
        text = format_text(fmt, args);
        va_end(args);
    }
    const std::string name = tag ? tag : "";
    write_line(LOG_FATAL, name, text);
    {
        std::lock_guard lock(log_state().mutex);
        if (log_state().sink)
            log_state().sink(LOG_FATAL, name, text);
    }
    std::abort();
}
