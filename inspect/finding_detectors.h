// SPDX-License-Identifier: Apache-2.0
/// @file
/// The detectors behind Findings, one for each concern. Each sees the items that concern it in the
/// order of the file, and says the rest when the file is over.
#pragma once

#include "inspect/demuxer_query.h"
#include "inspect/finding_sink.h"
#include "inspect/script.h"
#include "inspect/walker.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace zoflv_inspect {

/// Header, tags as such, what is between and after them. The streams that the header announces.
class StructureCheck {
public:
    explicit StructureCheck(FindingSink& sink) : m_sink(sink) {}
    void see(const Item& item);
    void finish();
    bool has_media() const { return m_audio.tags + m_video.tags > 0; }

private:
    struct Stream {
        uint64_t tags = 0;
        uint64_t left_out = 0;     ///< of them: encrypted and the like, which the demuxer skips
        uint64_t first_number = 0; ///< of the first one not left out, counting all tags from 1
        int64_t first_offset = NO_OFFSET;
        int64_t first_ms = 0; ///< of the one with that number
    };

    void see_header(const FileHeader& header);
    void see_lost(const LostRange& lost);
    void see_tag(const Tag& tag);
    void see_end(const End& end);
    void no_header();
    void check_kind(const Tag& tag);
    void check_link(const Tag& tag);
    void settle_lost(bool at_end);
    void settle_link(bool at_end);
    void check_announced(StreamKind kind, const Stream& stream, bool announced);

    FindingSink& m_sink;
    std::optional<FileHeader> m_header;
    std::optional<LostRange> m_lost; ///< the last item; whether it is the tail shows next
    std::optional<Tag> m_unlinked;   ///< likewise a tag without PreviousTagSize
    uint64_t m_items = 0;
    uint64_t m_tags = 0;
    int64_t m_searched_ms = 0; ///< the latest time among the tags searched for a stream
    Stream m_audio, m_video;
};

/// Times of the frames, and the metadata's duration against them.
class TimeCheck {
public:
    explicit TimeCheck(FindingSink& sink) : m_sink(sink) {}
    void see(const Tag& tag);
    /// @param duration_ms  of the metadata, as the demuxer reads it; 0: none
    void finish(double duration_ms);

private:
    struct Stream {
        bool any = false;
        uint32_t first = 0; ///< ms as written, like `last`
        uint32_t last = 0;
        int64_t first_offset = 0;
    };
    void check_step(const Stream& stream, const Tag& tag);
    void measure_distance(const Tag& tag);
    void check_start();
    void check_duration(double duration_ms);
    void check_drift();

    FindingSink& m_sink;
    Stream m_audio, m_video;
    int64_t m_end_ms = 0; ///< the latest time

    // Distance of audio from video, ms, where the tags change from one to the other.
    static constexpr size_t WINDOW = 64;
    std::vector<int64_t> m_distance_first; ///< the first WINDOW ones
    std::vector<int64_t> m_distance_last;  ///< a ring of the last WINDOW ones
    uint64_t m_distances = 0;
    StreamKind m_before = StreamKind::FILE;
};

/// The metadata of the first tag as the demuxer reads them.
struct KnownMetadata {
    ReadMetadata read{};
    bool has_duration = false;   ///< a property, whatever its value
    double written_duration = 0; ///< seconds
    int64_t offset = NO_OFFSET;  ///< of the tag; NO_OFFSET: no metadata are read
};

/// Script tags.
class MetadataCheck {
public:
    explicit MetadataCheck(FindingSink& sink) : m_sink(sink) {}
    /// @param first  whether it is the first tag of the file
    void see(const Tag& tag, TagWalker& walker, bool first);
    void finish();
    const KnownMetadata& known() const { return m_known; }

private:
    void check_first(const Tag& tag, const ScriptTree& tree, const View& body);
    void check_properties(const Tag& tag, const ScriptTree& tree, const ScriptNode& root);
    void check_duration();

    FindingSink& m_sink;
    KnownMetadata m_known;
    bool m_any = false; ///< an onMetaData was seen
};

/// The keyframe index against the tags.
class IndexCheck {
public:
    explicit IndexCheck(FindingSink& sink) : m_sink(sink) {}
    /// Before any other tag.
    void start(const KnownMetadata& metadata);
    void see(const Tag& tag, TagWalker& walker);
    void finish(int64_t file_size, bool has_video);

private:
    struct Entry {
        double time_ms;
        int64_t offset;          ///< as in the file, truncated
        int64_t tag_ms = 0;      ///< decoding time of the tag there
        int64_t key = NO_OFFSET; ///< offset of the keyframe that has the entry's time
        uint8_t type = 0;        ///< of the tag there; 0: none
        bool keyframe = false;
        bool first_byte = false; ///< the byte there could begin a tag
    };
    void match(Entry* entry, const Tag& tag);
    void look_for_key(const Tag& tag, bool hit);
    void check_arrays(const ReadMetadata& metadata);
    void check_entry(const Entry& entry, int64_t file_size, uint8_t wanted);
    void check_gaps(bool has_video);
    Finding* add(Rule rule, const Entry& entry);

    FindingSink& m_sink;
    int64_t m_meta_offset = NO_OFFSET;
    std::vector<Entry> m_entries;  ///< by offset, without those that come before the first tag
    std::vector<size_t> m_by_time; ///< into them
    size_t m_first = 0;            ///< of the entries: the one that was first in the file
    size_t m_at = 0;               ///< entries before it were passed
    uint64_t m_run = 0;            ///< keyframes since one that is in the index
    uint64_t m_longest_run = 0;
    int64_t m_longest_run_at = NO_OFFSET; ///< where it begins
    int64_t m_run_at = NO_OFFSET;
    bool m_config_hit = false; ///< an entry leads to the configuration before a keyframe
    bool m_first_key_missing = false;
    bool m_any_key = false;
};

/// The largest frames of a stream, as delivered, until it is known what is too large.
class FrameSizes {
public:
    void see(const Tag& tag, uint32_t size);
    /// Finds the first frame larger than a track's buffer.
    void finish(FindingSink* sink, StreamKind kind, int32_t max_input_size) const;

private:
    struct Frame {
        uint32_t size;
        int64_t offset;
        int64_t dts_ms;
    };
    std::vector<Frame> m_records; ///< each larger than all before
};

/// Video bodies.
class VideoCheck {
public:
    explicit VideoCheck(FindingSink& sink) : m_sink(sink) {}
    void see(const Tag& tag, TagWalker& walker, uint64_t tag_number);
    void finish(const KnownMetadata& metadata);
    const FrameSizes& sizes() const { return m_sizes; }
    /// Null without a video tag.
    const Codec* codec() const { return m_first ? &m_first->body.codec : nullptr; }

private:
    void see_avc(const Tag& tag, TagWalker& walker);
    void see_config(const Tag& tag, TagWalker& walker);
    void check_size(const Tag& tag, const View& sps, const ReadStream& stream);
    void see_units(const Tag& tag, TagWalker& walker);
    void check_key_flag(const Tag& tag, bool idr, bool recovery);
    void search_size(const Tag& tag, TagWalker& walker, uint64_t tag_number);

    FindingSink& m_sink;
    std::optional<Tag> m_first;       ///< the first tag with a codec
    std::optional<Tag> m_first_frame; ///< AVC: the first one, before a configuration too
    std::optional<Tag> m_end;         ///< an AVC end of sequence, not followed by a frame so far
    std::vector<uint8_t> m_config;    ///< AVC: the record
    bool m_configured = false;
    bool m_delivered = false; ///< a frame was seen that can be decoded
    uint32_t m_length_size = 4;
    uint64_t m_search_from = 0; ///< number of the first video tag
    bool m_size_known = false;
    FrameSizes m_sizes;
};

/// Audio bodies.
class AudioCheck {
public:
    explicit AudioCheck(FindingSink& sink) : m_sink(sink) {}
    void see(const Tag& tag, TagWalker& walker);
    void finish();
    const FrameSizes& sizes() const { return m_sizes; }
    /// Null without an audio tag.
    const Codec* codec() const { return m_first ? &m_first->body.codec : nullptr; }

private:
    void see_first(const Tag& tag, TagWalker& walker);
    void see_aac(const Tag& tag, TagWalker& walker);
    void judge_aac_config(const Tag& tag, const View& body);

    FindingSink& m_sink;
    std::optional<Tag> m_first;
    bool m_any_frame = false;
    bool m_configured = false;
    std::vector<uint8_t> m_config; ///< AAC: the body
    FrameSizes m_sizes;
};

} // namespace zoflv_inspect
