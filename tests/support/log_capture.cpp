// SPDX-License-Identifier: Apache-2.0
#include "tests/support/log_capture.h"

#include <android/log.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <utility>

namespace {

std::mutex log_mutex;
bool capturing = false;
LogCapture::Lines captured;

bool glob(const char* pattern, const char* text)
{
    if (*pattern == '*')
        return glob(pattern + 1, text) || (*text && glob(pattern, text + 1));
    return *pattern == *text && (!*text || glob(pattern + 1, text + 1));
}

bool matches(std::string expected, const std::string& line)
{
    const size_t at = expected.find(": #");
    if (at != std::string::npos)
        expected = expected.substr(0, at) + ": assert!, [zoflv/dmx/" + expected.substr(2, at - 2) +
                   ": " + expected.substr(at + 3) + "]";
    return glob(expected.c_str(), line.c_str());
}

} // namespace

extern "C" int __android_log_print(int prio, const char* tag, const char* fmt, ...)
{
    char text[1024];
    va_list args;
    va_start(args, fmt);
    std::vsnprintf(text, sizeof text, fmt, args);
    va_end(args);
    const char initial = prio == 4 ? 'I' : prio == 5 ? 'W' : prio == 6 ? 'E' : '?';
    const std::lock_guard<std::mutex> lock(log_mutex);
    if (capturing)
        captured.push_back(std::string(1, initial) + " " + tag + ": " + text);
    return 0;
}

extern "C" void __android_log_assert(const char* /*cond*/, const char* tag, const char* fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    std::fprintf(stderr, "F %s: ", tag); // for death tests
    std::vfprintf(stderr, fmt, args);
    va_end(args);
    std::abort();
}

void LogCapture::start(bool on)
{
    const std::lock_guard<std::mutex> lock(log_mutex);
    captured.clear();
    capturing = on;
}

const LogCapture::Lines& LogCapture::lines() const
{
    return captured;
}

::testing::AssertionResult LogCapture::is(const Lines& expected)
{
    const Lines got = std::exchange(captured, {});
    if (std::equal(expected.begin(), expected.end(), got.begin(), got.end(), matches))
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "logged " << ::testing::PrintToString(got)
                                         << "\nexpected " << ::testing::PrintToString(expected);
}

LogCapture::Lines LogCapture::texts() const
{
    Lines out = captured;
    for (std::string& line : out)
        line.erase(0, line.find(": ") + 2);
    return out;
}

bool LogCapture::has(const std::string& expected) const
{
    const auto match = [&](const std::string& line) { return matches(expected, line); };
    return std::any_of(captured.begin(), captured.end(), match);
}
