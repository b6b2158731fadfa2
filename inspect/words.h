// SPDX-License-Identifier: Apache-2.0
/// @file
/// Numbers as sentences have them.
#pragma once

#include <cstdint>
#include <string>

namespace zoflv_inspect {

/// "254,084"
std::string grouped(int64_t number);
/// "1 byte", "254,084 bytes"
/// @param noun  in the singular, with a plural in "s"
std::string counted(uint64_t count, const char* noun);

} // namespace zoflv_inspect
