// SPDX-License-Identifier: Apache-2.0
/// @file
/// What the first tags of a file tell beyond what the demuxer hands out.
#pragma once

#include "inspect/byte_source.h"
#include "inspect/script.h"
#include "inspect/tag.h"

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace zoflv_inspect {

struct Head {
    std::optional<FileHeader> header; ///< the file's first bytes are one
    std::optional<Tag> metadata_tag;  ///< the first script tag of the event onMetaData
    ScriptTree metadata;              ///< its body
    std::vector<uint8_t> aac_config;  ///< the first AudioSpecificConfig; empty: none
    bool video_sized = false;         ///< a video tag's own header has the picture size
};

/// Reads a bounded part of a file's beginning, whatever is in it: the largest tag, and some more.
Head read_head(ByteSource& source);

/// The properties of onMetaData: the object or array that follows the event's name; null when there
/// is none.
const ScriptNode* metadata_properties(const Head& head);

/// What wrote the file, as its metadata say; nothing when they do not.
std::optional<std::string_view> made_by(const Head& head);

} // namespace zoflv_inspect
