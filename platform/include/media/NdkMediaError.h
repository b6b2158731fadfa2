// SPDX-License-Identifier: Apache-2.0
/// @file
/// Stand-in for the status values of the platform's media NDK.
#pragma once

typedef enum {
    AMEDIA_OK = 0,
    AMEDIA_ERROR_UNKNOWN = -10000,
    AMEDIA_ERROR_UNSUPPORTED = -10002,
    AMEDIA_ERROR_INVALID_OPERATION = -10005,
    AMEDIA_ERROR_END_OF_STREAM = -10006,
    AMEDIA_ERROR_IO = -10007,
} media_status_t;
