// SPDX-License-Identifier: Apache-2.0
/// @file
/// What `check --csv` writes, made from the records of `check --json`.
#pragma once

#include "tools/output.h"

#include <string>

/// The names of the columns, with the line end.
std::string check_csv_header();

/// The row of one record, with the line end; always one line. What is not known is empty. Text that
/// a spreadsheet would take for a formula begins with an apostrophe.
std::string check_csv_row(const Json& record);
