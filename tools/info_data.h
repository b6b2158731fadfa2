// SPDX-License-Identifier: Apache-2.0
/// @file
/// What `info` knows of a file, as the JSON object that it prints.
#pragma once

#include "tools/session.h"

#include <string>

/// One file's record, whatever became of it. Never throws Failure.
struct InfoRecord {
    /// Keys: schema_version, file, status, reason, and what was found; null what was not.
    Json object;
    int code = EXIT_FINE; ///< the exit code that the file is worth
};

/// @param entries  with the entries of the keyframe index
InfoRecord read_info(const std::string& path, bool entries, Session& session);

/// A codec in words, from its code: "h264", "MPEG audio".
std::string codec_text(uint32_t code);
