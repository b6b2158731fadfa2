// SPDX-License-Identifier: Apache-2.0
/// @file
/// The subcommands. Each prints its results and messages and returns the exit code.
#pragma once

#include "tools/framework.h"
#include "tools/log.h"
#include "tools/output.h"

#include <optional>
#include <string>
#include <vector>

struct InfoOptions {
    std::vector<std::string> files;
    bool json = false;
};

struct FramesOptions {
    std::string file;
    bool demuxer = false;
    int stream = -1; ///< of the demuxer; -1: all
    int track = -1;  ///< of the plugin; -1: all
    bool json = false;
};

struct SeekOptions {
    std::string file;
    std::vector<std::string> times; ///< as parse_time() takes them
    int track = -1;                 ///< -1: all
    std::string mode = "previous";  ///< or "next", "closest-sync", "closest", "all"
    bool json = false;
};

/// What is in each file, for the demuxer and for the framework; goes on behind a bad one and
/// returns the worst code.
int run_info(const InfoOptions& options, const PluginPtr& plugin, LogTap& log);

/// The frames of one track or stream, or of all one after the other.
/// @param plugin  not used with `options.demuxer`
int run_frames(const FramesOptions& options, const PluginPtr& plugin, LogTap& log);

/// Where seeks land and what they cost.
int run_seek(const SeekOptions& options, const PluginPtr& plugin, LogTap& log);

/// Microseconds of "83.5", "1:23.5" or "0:01:23.5", cut behind the sixth decimal; nothing for any
/// other text and from 200,000,000 seconds on.
std::optional<int64_t> parse_time(const std::string& text);
