// SPDX-License-Identifier: Apache-2.0
/// @file
/// The onMetaData tag of a repaired file: the old properties, the new figures, and a keyframe index.
#pragma once

#include "inspect/script.h"
#include "inspect/walker.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace zoflv_inspect {

/// An entry of the keyframe index.
struct IndexEntry {
    int32_t time = 0;   ///< ms
    int64_t offset = 0; ///< of the tag, bytes
};

/// Collects entries in the order of the file, and thins them evenly when they get too many.
class IndexCollector {
public:
    /// @param most  entries to keep, 1 at least
    explicit IndexCollector(size_t most) : m_most(most) {}

    /// An entry whose time is not after the one before is left out: a search needs them in order.
    void add(const IndexEntry& entry);
    const std::vector<IndexEntry>& entries() const { return m_entries; }
    uint64_t seen() const { return m_seen; } ///< entries offered, in order

private:
    const size_t m_most;
    std::vector<IndexEntry> m_entries;
    uint64_t m_seen = 0;
    uint64_t m_stride = 1; ///< one in so many is kept, a power of 2
    int32_t m_last = -1;
};

/// What is told of the repaired file.
struct NewFigures {
    double duration = 0.0; ///< seconds
    double filesize = 0.0; ///< bytes, as the next three
    double datasize = 0.0;
    double videosize = 0.0;
    double audiosize = 0.0;
    double lasttimestamp = 0.0; ///< seconds
    bool has_video = false;
    bool has_audio = false;
    bool can_seek_to_end = false;            ///< the last frame of video is a keyframe
    std::optional<IndexEntry> last_keyframe; ///< of video
    std::vector<IndexEntry> index;
};

class RepairMetadata {
public:
    static constexpr uint32_t LARGEST_BODY = (1U << 24) - 1;

    /// Whether a script tag's body is onMetaData; the first bytes are enough.
    static bool is_metadata(const View& body);
    /// Takes the old properties.
    void take(const View& body);

    /// Entries that leave the body below the size that a tag can have.
    size_t most_entries() const;
    /// Bytes of the body, whatever the figures.
    uint32_t body_size(size_t entries, bool keyframe) const;
    std::vector<uint8_t> body(const NewFigures& figures) const;

    size_t kept() const { return m_kept.size(); } ///< old properties
    /// The names of old properties that are not copied, with why.
    const std::vector<std::string>& dropped() const { return m_dropped; }

private:
    std::vector<std::vector<uint8_t>> m_kept; ///< name and value, as they are in the file
    std::vector<std::string> m_dropped;
    size_t m_kept_bytes = 0;
};

} // namespace zoflv_inspect
