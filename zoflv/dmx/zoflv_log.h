// SPDX-License-Identifier: Apache-2.0
/// @file
/// The one helper that writes every "assert!" line of the demuxer.
#pragma once

#include <android/log.h>

/// Logs a failed check at error priority.
/// @param tag    log tag of the module
/// @param source the module's source path without its ending, such as "zoflv/dmx/zoflvd"
/// @param check  the check's name, for integrators to look up: a literal number that no other check of
///               the source has, never a line's. Fixed ones lie below 3000, later ones above
inline void zoflv_log_assert(const char* tag, const char* source, int check)
{
    __android_log_print(ANDROID_LOG_ERROR, tag, "assert!, [%s: %d]", source, check);
}
