// SPDX-License-Identifier: Apache-2.0
/// @file
/// What every subcommand is made of: it registers its options with the command line and gives a
/// function that runs it with a session.
#pragma once

#include "tools/session.h"

#include <CLI/CLI.hpp>

#include <functional>
#include <string>
#include <vector>

/// A subcommand, registered.
struct Command {
    CLI::App* app;
    std::function<int(Session&)> run; ///< returns the exit code
};
using AddCommand = Command (*)(CLI::App& app);

/// What `--help` says of a subcommand, in this order.
struct Help {
    const char* brief;    ///< one line, also in the list of subcommands
    const char* examples; ///< a line each, without a line end after the last
    const char* notes;    ///< after the options; empty: none
    const char* exit_codes =
        "0 fine; 1 a file is not readable as FLV, or a read failed; 2 wrong usage, or a\n"
        "file, the plugin or the output cannot be opened or written";
};

/// Adds a subcommand with its help.
CLI::App* add_command(CLI::App& app, const char* name, const Help& help);

/// The layout of all help: what it is, examples, usage, options, notes, exit codes.
std::shared_ptr<CLI::FormatterBase> help_formatter();
/// Sets the description and the footer from which that formatter prints.
void set_help(CLI::App& app, const Help& help);

// Options that several subcommands have.
CLI::Option* add_file(CLI::App* command, std::string* file);
CLI::Option* add_files(CLI::App* command, std::vector<std::string>* files); ///< one or more
CLI::Option* add_json(CLI::App* command, bool* json);
/// One of some words.
CLI::Option* add_choice(CLI::App* command, const char* name, std::string* choice, const char* help,
                        const std::vector<std::string>& choices);
/// A whole number from 0 on; left alone when it is not given.
CLI::Option* add_number(CLI::App* command, const char* name, int* number, const char* help);

/// What is wrong with a command line, and what to write instead, in one line.
std::string usage_message(const CLI::App& app, int argc, const char* const* argv,
                          const CLI::ParseError& error);
