// SPDX-License-Identifier: Apache-2.0
/// @file
/// What `info --scan` shows: a walk over the whole file, beside what the metadata claims.
#pragma once

#include "inspect/scan.h"
#include "tools/output.h"

#include <string>

/// Walks a file. Throws Failure when it cannot be opened.
/// @param progress  show it on a terminal
zoflv_inspect::Scan scan_file(const std::string& path, bool progress);

/// The object under the key "scan". What the metadata claims is under "claimed"; null where it
/// claims nothing. Times are in microseconds.
Json scan_json(const zoflv_inspect::Scan& scan);

/// Lines for people.
void print_scan(const zoflv_inspect::Scan& scan);
