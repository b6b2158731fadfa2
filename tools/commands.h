// SPDX-License-Identifier: Apache-2.0
/// @file
/// The subcommands. Each prints its results and messages and returns the exit code.
#pragma once

#include "tools/log.h"
#include "tools/output.h"

#include <string>
#include <vector>

struct InfoOptions {
    std::vector<std::string> files;
    bool json = false;
};

struct FramesOptions {
    std::string file;
    int stream = -1; ///< -1: all
    bool json = false;
};

/// What is in each file; goes on behind a bad one and returns the worst code.
int run_info(const InfoOptions& options, LogTap& log);

/// The frames of one stream, or of all one after the other.
int run_frames(const FramesOptions& options, LogTap& log);
