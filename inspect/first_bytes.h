// SPDX-License-Identifier: Apache-2.0
/// @file
/// What a file that is no FLV may be, told from its first bytes.
#pragma once

#include "inspect/byte_source.h"

#include <string>

namespace zoflv_inspect {

struct FirstBytes {
    /// As a clause in ASCII: "it is empty", "it begins as an MP4 file does", "it begins with the text
    /// "hello"", "it begins with the bytes 01 02 03". Empty when it begins as an FLV file.
    std::string text;
    bool other = false; ///< empty or of another kind: there is no FLV in it to look for
};
FirstBytes read_first_bytes(ByteSource& source);

} // namespace zoflv_inspect
