// SPDX-License-Identifier: Apache-2.0
/// @file
/// The dynamic symbols of a library file.
#pragma once

#include <string>
#include <vector>

namespace zoflv_host {

/// Reads the names of the dynamic symbols that a shared library of this machine defines, without
/// loading it.
/// @param error  set to the reason, without the path, on failure
bool read_defined_symbols(const std::string& path, std::vector<std::string>* names,
                          std::string* error);

} // namespace zoflv_host
