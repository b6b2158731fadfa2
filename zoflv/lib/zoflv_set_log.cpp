// SPDX-License-Identifier: Apache-2.0
#include "zoflv/lib/zoflv_set_log.h"

// In the installed library the name below is another one, see CMakeLists.txt here.
#include <android/log.h>
#include <atomic>
#include <cstdarg>
#include <cstdio>

namespace {

std::atomic<zoflv_log_fn> log_function{nullptr};

} // namespace

zoflv_log_fn zoflv_set_log(zoflv_log_fn log)
{
    return log_function.exchange(log);
}

int __android_log_print(int prio, const char* tag, const char* fmt, ...)
{
    const zoflv_log_fn log = log_function.load();
    if (!log)
        return 0;
    char text[512];
    va_list args;
    va_start(args, fmt);
    const int length = std::vsnprintf(text, sizeof text, fmt, args);
    va_end(args);
    log(prio, tag, length < 0 ? fmt : text);
    return length;
}
