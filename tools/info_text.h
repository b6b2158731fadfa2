// SPDX-License-Identifier: Apache-2.0
/// @file
/// What `info` prints for people. Each takes the record of a file that could be opened.
#pragma once

#include "tools/output.h"

#include <cstddef>
#include <string>

/// A text from the file, as printable() makes it, with "..." for what is past `most` bytes.
std::string shortened(const Json& text, size_t most);

/// A few lines: size, duration, a line for each track, the index.
void print_brief(const Json& record);
/// Every value.
void print_all(const Json& record);
/// The entries of the keyframe index, a line each.
void print_entries(const Json& record);
