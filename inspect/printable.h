// SPDX-License-Identifier: Apache-2.0
/// @file
/// Text from a file or a file name, made fit to be shown.
#pragma once

#include <string>
#include <string_view>

namespace zoflv_inspect {

/// The text without control characters, marks of direction and bytes that are no UTF-8, which become
/// \xNN, so that it stays on one line and leaves the terminal alone. With `ascii` all bytes from 0x80
/// are escaped.
std::string printable(std::string_view text, bool ascii = false);

} // namespace zoflv_inspect
