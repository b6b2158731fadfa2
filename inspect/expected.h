// SPDX-License-Identifier: Apache-2.0
/// @file
/// What a track has to deliver for each tag of its kind.
#pragma once

#include "inspect/tag.h"
#include "inspect/walker.h"

#include <cstdint>
#include <optional>

namespace zoflv_inspect {

enum class Kind : uint8_t { AUDIO, VIDEO };

/// What a tag gives when all goes well.
struct ExpectedFrame {
    bool counts = true; ///< false: a configuration or the like, which may be delivered or not
    bool keyframe = false;
    Codec codec{};
    uint32_t size = 0; ///< bytes as delivered: AVC with start codes
    int64_t dts_ms = 0;
    int64_t offset = 0; ///< of the tag
    int64_t end = 0;    ///< of the tag
};

/// Goes along with the tags of one kind: what counts depends on those before.
class FrameRules {
public:
    explicit FrameRules(Kind kind) : m_kind(kind) {}

    /// A frame counts when its tag is neither a configuration nor without payload; of AVC those of
    /// packet type 1 alone, from the first configuration on.
    /// @param walker  at the tag
    /// @return nothing when the tag gives nothing
    std::optional<ExpectedFrame> expect(const Tag& tag, TagWalker& walker);

    /// AVC frames so far in a stream without any configuration: nothing came after them to make them
    /// count, and nothing that they would be before.
    uint64_t unconfigured() const { return m_configured ? 0 : m_early; }
    /// Bytes of the length before each NAL unit, 0 before the first configuration.
    uint32_t avc_length_size() const { return m_configured ? m_length_size : 0; }

private:
    std::optional<ExpectedFrame> expect_avc(const Tag& tag, TagWalker& walker);

    Kind m_kind;
    bool m_configured = false;  ///< AVC
    uint64_t m_early = 0;       ///< AVC: frames before the first configuration
    uint32_t m_length_size = 4; ///< AVC: bytes of the length before each NAL unit
};

} // namespace zoflv_inspect
