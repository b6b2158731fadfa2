// SPDX-License-Identifier: Apache-2.0
/// @file
/// Script data as text and as JSON.
#pragma once

#include "inspect/script.h"
#include "inspect/tag.h"
#include "tools/line.h"

/// A line for each value: where it is in the file, its name, what it is.
void print_script(LineWriter* out, const zoflv_inspect::Tag& tag,
                  const zoflv_inspect::ScriptTree& tree);

/// The members ,"values":[...],"error":...,"unread":N of an object that is begun.
void write_script_json(LineWriter* out, const zoflv_inspect::Tag& tag,
                       const zoflv_inspect::ScriptTree& tree);
