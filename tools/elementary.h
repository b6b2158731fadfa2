// SPDX-License-Identifier: Apache-2.0
/// @file
/// The frames of one track as a file that decoders and players know.
#pragma once

#include "tools/output_file.h"

#include <zoflv_host/format.h>

#include <cstdint>
#include <memory>
#include <string>

/// Writes frames in one form. Every function throws Failure.
class ElementaryWriter {
public:
    virtual ~ElementaryWriter() = default;
    virtual void frame(const uint8_t* data, size_t size, int64_t time_us) = 0;
    /// After the last frame. Publishes the file, and what stands beside it.
    virtual void finish() = 0;
};

/// Picks the form by the track's format: AVC as Annex B with its parameter sets in front, AAC as
/// ADTS, MPEG audio as it is, PCM and G.711 as WAV, anything else one frame after the other, with
/// `target`.csv beside it, which has each frame's offset, size and time.
/// @param raw    this last form, whatever the format
/// @param force  files that exist may be replaced
std::unique_ptr<ElementaryWriter> make_writer(const zoflv_host::Format& format,
                                              const std::string& target, bool raw, bool force);
