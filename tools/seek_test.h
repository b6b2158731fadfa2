// SPDX-License-Identifier: Apache-2.0
/// @file
/// `zoflv seek` without times: the seek test of `zoflv check` alone, each landing shown.
#pragma once

#include "inspect/device_run.h"
#include "tools/session.h"

#include <string>

struct SeekTestOptions {
    zoflv_inspect::DeviceOptions device{};
    int track = -1;                ///< -1: all that are tested
    std::string mode = "previous"; ///< or another's name, or "all"
    int max_miss_ms = -1; ///< a landing further from the ideal one is a failure; -1: none is
    int max_reads = -1;   ///< a seek with its frame that needs more file calls is; -1: none is
    bool json = false;
};

/// Tests a file and prints each landing; complains when seeks miss, or miss or cost more than they may.
/// Throws Failure when nothing plays.
/// @param worst  raised to the exit code of a complaint
void test_seeks(const std::string& file, const SeekTestOptions& options, Session& session,
                int* worst);
