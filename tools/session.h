// SPDX-License-Identifier: Apache-2.0
/// @file
/// What every subcommand has at hand when it runs.
#pragma once

#include "inspect/device_profile.h"
#include "tools/framework.h"
#include "tools/log.h"
#include "tools/output.h"

#include <functional>
#include <string>

/// Of every JSON object that the command prints.
constexpr int schema_version = 1;

/// What goes wrong before the first file is looked at; ends the run.
class SetupFailure : public Failure {
public:
    SetupFailure(std::string subject, const std::string& text)
        : Failure(EXIT_USAGE, text), m_subject(std::move(subject))
    {}
    const std::string& subject() const { return m_subject; }

private:
    std::string m_subject;
};

/// Does the work on a file as attempt() does; with `json`, what fails has its object on stdout too:
/// "file", "status" (refused: it is no FLV; failed: it was not looked at) and "reason".
void attempt_file(int* worst, const std::string& file, bool json,
                  const std::function<void()>& work);

/// The options that all subcommands share.
struct SharedOptions {
    bool verbose = false;
    bool quiet = false;
    std::string plugin; ///< path; empty: the one found
    std::string device; ///< path of a profile; empty: the default
};

/// What a run has at hand. Made after the command line was read.
class Session {
public:
    /// Sets the device up. Throws SetupFailure when its profile cannot be read.
    explicit Session(const SharedOptions& options);

    LogTap& log() { return m_log; }
    /// No progress, no summary on stderr.
    bool quiet() const { return m_options.quiet; }
    /// Loaded when first asked for. Throws SetupFailure: ask before the first file.
    const PluginPtr& plugin();
    /// What the device plays: the plugin is told so when it asks about video.
    const zoflv_inspect::DeviceProfile& device() const { return m_device; }

private:
    const SharedOptions m_options;
    LogTap m_log;
    PluginPtr m_plugin;
    zoflv_inspect::DeviceProfile m_device;
};
