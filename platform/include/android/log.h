// SPDX-License-Identifier: Apache-2.0
/// @file
/// Stand-in for the platform's log, under its public include name.
#pragma once

enum {
    ANDROID_LOG_INFO = 4,
    ANDROID_LOG_WARN = 5,
    ANDROID_LOG_ERROR = 6,
};

#ifdef __cplusplus
extern "C" {
#endif

/// Writes one message. Thread-safe. A program may define this function itself; its definition then
/// serves the libraries too.
/// @return the number of bytes of the text, or 0 when its priority is not written
int __android_log_print(int prio, const char* tag, const char* fmt, ...)
    __attribute__((format(printf, 3, 4)));

/// Writes a fatal message and aborts the process.
/// @param cond  text of the condition that failed; written when `fmt` is null
void __android_log_assert(const char* cond, const char* tag, const char* fmt, ...)
    __attribute__((noreturn, format(printf, 3, 4)));

#ifdef __cplusplus
}
#endif
