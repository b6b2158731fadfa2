// SPDX-License-Identifier: Apache-2.0
/// @file
/// Follows a reader through the tags of a file by the reads that it makes.
#pragma once

#include "inspect/byte_source.h"
#include "inspect/expected.h"
#include "inspect/frame_places.h"
#include "inspect/tag.h"

#include <zoflv_host/data_source.h>

#include <array>
#include <cstdint>
#include <optional>

namespace zoflv_inspect {

/// Knows the tag of each frame that a reader of one kind delivers, and whether one was left out,
/// without a walk of its own: the reader reads each tag's header, the other kind's included, and of
/// its own tags nearly all that the frame depends on.
///
/// Only for what is plain: tags that lead from one to the next, of one codec in each frame, and no
/// second configuration. There it tells what FramePlaces would. At the first tag that is anything
/// else, or a frame that is not the next tag's, the trail is lost; FramePlaces then has to walk.
class TagTrail : public zoflv_host::ReadWatcher {
public:
    /// To be set as watcher of the reader's source before its first frame is read.
    /// @param bytes  the source that the reader reads: outlives this
    TagTrail(ByteSource& bytes, Kind kind);

    /// The next frame that the reader delivered. Nothing when the trail is lost.
    std::optional<FramePlace> deliver(int64_t time_us, uint64_t size);
    /// Whether the trail is at the end of a file of that size, and all frames came.
    bool complete(int64_t file_size) const;
    /// Of the tags before this offset each frame that counts was delivered.
    int64_t proven() const { return m_proven; }

protected:
    void on_read(int64_t offset, const void* data, ssize_t count) override;

private:
    /// A read of one tag that has been waited for.
    enum class Step : uint8_t { FIRST, HEADER, PACKET_TYPE, COMPOSITION, UNIT_LENGTH };
    /// A tag whose frame was not delivered yet.
    struct Ahead {
        uint32_t frame_size = 0; ///< 0: by the units, whose length fields are as they should be
        int64_t dts_ms = 0;
        FramePlace place;
    };

    bool begin(int64_t first);
    bool take_header(int64_t offset, const uint8_t* header);
    bool take_own(int64_t offset, const uint8_t* header, uint32_t size);
    bool take_unit_length(ssize_t count);
    bool learn(const Codec& codec);
    void await_after(Step step, int64_t offset);

    ByteSource& m_bytes;
    const Kind m_kind;
    Step m_step = Step::FIRST;
    bool m_lost = false;
    bool m_avc = false;
    int64_t m_next = 0; ///< offset of the next tag
    int64_t m_proven = 0;
    uint32_t m_head_size = 0; ///< bytes of a body before the frame
    uint32_t m_length_size = 0;
    std::optional<Codec> m_codec;
    std::array<bool, 256> m_plain{}; ///< by a body's first byte: a frame of the codec
    std::array<Ahead, 2> m_ahead; ///< the next frame to be delivered, and what is read ahead of it
    uint64_t m_seen = 0, m_delivered = 0;
};

} // namespace zoflv_inspect
