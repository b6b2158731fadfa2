// SPDX-License-Identifier: Apache-2.0
// A log that drops everything: fuzzing must not be slowed by it.
#include <android/log.h>
#include <cstdlib>

int __android_log_print(int, const char*, const char*, ...)
{
    return 0;
}

void __android_log_assert(const char*, const char*, const char*, ...)
{
    std::abort();
}
