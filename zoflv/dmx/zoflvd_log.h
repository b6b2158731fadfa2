// SPDX-License-Identifier: Apache-2.0
/// @file
/// The log lines of the demuxer's handles: all their sources log as "zoflvd".
#pragma once

#include "zoflv/dmx/zoflv_err.h"
#include "zoflv/dmx/zoflv_log.h"

constexpr char ZOFLVD_LOG_TAG[] = "zoflvd";
constexpr char ZOFLVD_SOURCE[] = "zoflv/dmx/zoflvd";

/// Logs a failed check, and gives the code to return.
inline int zoflvd_fail(int check, int code = ZOFLV_ERR_FAIL)
{
    zoflv_log_assert(ZOFLVD_LOG_TAG, ZOFLVD_SOURCE, check);
    return code;
}

/// Logs a text at error priority, and gives the code to return.
inline int zoflvd_log_error(const char* text, int code = ZOFLV_ERR_FAIL)
{
    __android_log_print(ANDROID_LOG_ERROR, ZOFLVD_LOG_TAG, "%s", text);
    return code;
}

inline void zoflvd_log_warning(const char* text)
{
    __android_log_print(ANDROID_LOG_WARN, ZOFLVD_LOG_TAG, "%s", text);
}
