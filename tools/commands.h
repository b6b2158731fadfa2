// SPDX-License-Identifier: Apache-2.0
/// @file
/// The subcommands, each in a source of its name.
#pragma once

#include "tools/command.h"

Command add_info(CLI::App& app);
Command add_check(CLI::App& app);
Command add_repair(CLI::App& app);
Command add_findings(CLI::App& app);
Command add_frames(CLI::App& app);
Command add_seek(CLI::App& app);
Command add_extract(CLI::App& app);
Command add_tags(CLI::App& app);
Command add_reasons(CLI::App& app);
Command add_report(CLI::App& app);
