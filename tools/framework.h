// SPDX-License-Identifier: Apache-2.0
/// @file
/// The plugin as the media framework uses it: found, loaded, its tracks started.
#pragma once

#include "tools/log.h"

#include <zoflv_host/extractor.h>

#include <memory>
#include <string>

using PluginPtr = std::shared_ptr<zoflv_host::ExtractorLibrary>;
using ExtractorPtr = std::shared_ptr<zoflv_host::Extractor>;

/// Throws Failure when the plugin cannot be found or loaded.
/// @param path  empty: beside the command, in the build tree, or installed
PluginPtr load_plugin(std::string path);

/// Opens a file. Throws Failure when it cannot be opened, or the plugin finds no track in it.
/// @param log  gives the reason of a failure
ExtractorPtr open_extractor(const PluginPtr& plugin, const std::string& path, LogTap& log);

/// A track, started. Throws Failure.
std::unique_ptr<zoflv_host::Track> start_track(zoflv_host::Extractor& extractor, int index,
                                               LogTap& log);
