// SPDX-License-Identifier: Apache-2.0
/// @file
/// The properties of onMetaData as JSON: every name, whether it is known or not.
#pragma once

#include "inspect/head.h"
#include "tools/output.h"

/// One member for each property; of a name that comes twice the last. Objects are objects, arrays
/// arrays, dates texts; null is what has no value, and a number that JSON cannot represent. Of the
/// keyframe index the two arrays are left out. Null when there is no onMetaData.
/// @param left_out  receives the number of values that are not shown, since there are too many
Json properties_json(const zoflv_inspect::Head& head, size_t* left_out);
