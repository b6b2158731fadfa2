// SPDX-License-Identifier: Apache-2.0
/// @file
/// What a walk over an FLV file meets: file headers, tags, lost ranges, the end. Together they cover
/// every byte up to the end once, in order.
#pragma once

#include <cstdint>

namespace zoflv_inspect {

constexpr uint32_t TAG_HEADER_SIZE = 11;
constexpr uint32_t PREVIOUS_TAG_SIZE_SIZE = 4;

enum TagType : uint8_t { TAG_AUDIO = 8, TAG_VIDEO = 9, TAG_SCRIPT = 18 };

/// PreviousTagSize against the 11 bytes and the body that it counts.
enum class Link : uint8_t {
    RIGHT,
    MISSING,     ///< the file ends before it, or the next tag's header is in its place
    ZERO,        ///< 0
    BODY,        ///< 11 less: the body alone
    PLUS_4,      ///< 4 more: counts itself
    PLUS_15,     ///< 15 more: counts the header twice and itself
    OTHER_WRONG, ///< anything else
};

/// What a packet is for, whatever its codec calls it.
enum class Packet : uint8_t {
    FRAME,    ///< coded data
    CONFIG,   ///< codec configuration: sequence header, sequence start, multichannel layout
    END,      ///< end of sequence
    METADATA, ///< of an enhanced header: colour and the like
    COMMAND,  ///< a video command frame
    UNKNOWN,  ///< a packet type that is not known, or a body too short to have one
};

/// Audio or video by CodecID or SoundFormat, or by FourCC.
struct Codec {
    uint8_t number = 0;  ///< CodecID or SoundFormat, 0 to 15; with a FourCC the bits in its place
    uint32_t fourcc = 0; ///< first character in the highest byte; 0: by number

    bool operator==(const Codec& other) const
    {
        return fourcc == other.fourcc && (fourcc != 0 || number == other.number);
    }
    bool operator!=(const Codec& other) const { return !(*this == other); }
};

/// What the first bytes of an audio or video body say.
struct BodyInfo {
    bool known = false;    ///< false: a script or other tag, or an empty body; the rest is unset
    bool enhanced = false; ///< the header is an enhanced one, with packet types and mostly a FourCC
    bool multitrack = false;  ///< of an enhanced header: several tracks, `codec` is the first one's
    bool keyframe = false;    ///< video: FrameType 1 or 4
    bool stereo = false;      ///< audio by number: SoundType
    uint8_t frame_type = 0;   ///< video: FrameType, 1 to 5
    uint8_t rate_code = 0;    ///< audio by number: SoundRate, 0 to 3
    uint8_t sample_bits = 0;  ///< audio by number: SoundSize, 8 or 16
    int16_t packet_type = -1; ///< AVCPacketType, AACPacketType or the enhanced one; -1: has none
    Packet packet = Packet::UNKNOWN;
    Codec codec{};
    int32_t composition_ms = 0; ///< CompositionTime, signed; 0 where there is none
    uint32_t payload = 0;       ///< bytes of the body before what goes to the decoder
};

struct Tag {
    int64_t offset = 0;    ///< of the first header byte
    uint8_t type_byte = 0; ///< as written: 2 reserved bits, filter bit, 5 bits of type
    Link link = Link::RIGHT;
    bool cut = false;    ///< the file ends inside the body
    uint32_t size = 0;   ///< of the body, as written
    uint32_t stored = 0; ///< bytes of the body that the file has; less than `size` in a cut tag
    uint32_t time = 0;   ///< Timestamp with TimestampExtended as its highest byte, ms
    uint32_t stream_id = 0;
    uint32_t previous_tag_size = 0; ///< as written after the tag; 0 when missing
    uint8_t tail = 0; ///< bytes after the body that are this tag's: 4, fewer when missing
    BodyInfo body{};

    uint8_t type() const { return type_byte & 0x1F; }
    /// The body is encrypted or otherwise preprocessed.
    bool filtered() const { return (type_byte & 0x20) != 0; }
    bool audio() const { return type() == TAG_AUDIO; }
    bool video() const { return type() == TAG_VIDEO; }
    bool script() const { return type() == TAG_SCRIPT; }

    int64_t body_offset() const { return offset + TAG_HEADER_SIZE; }
    /// The position after all that is this tag's.
    int64_t end() const { return body_offset() + stored + tail; }
    /// Decoding time; negative when the highest bit is set, as players read it.
    int64_t dts_ms() const { return static_cast<int32_t>(time); }
    int64_t pts_ms() const { return dts_ms() + body.composition_ms; }
    /// Bytes that go to the decoder.
    uint32_t payload_size() const { return stored > body.payload ? stored - body.payload : 0; }
};

/// A file header, the first one or one inside the file, and the PreviousTagSize0 after it.
struct FileHeader {
    int64_t offset = 0;
    uint32_t stored = 0; ///< bytes up to the first tag: 13 in a common file
    uint8_t version = 0;
    uint8_t flags = 0;              ///< 1 video, 4 audio, the others reserved
    uint32_t data_offset = 0;       ///< as written
    bool followed = false;          ///< the first tag is where `data_offset` says
    bool previous_tag_size = false; ///< there is a PreviousTagSize0
    uint32_t previous_tag_size_0 = 0;

    int64_t end() const { return offset + stored; }
};

enum class LostKind : uint8_t {
    DAMAGE, ///< anything else
    ZEROS,  ///< nothing but zeros
    ID3,    ///< begins as an ID3v2 header
};

/// Bytes that belong to no tag.
struct LostRange {
    int64_t offset = 0;
    int64_t size = 0;
    LostKind kind = LostKind::DAMAGE;
    bool tag_header = false; ///< begins as a tag header whose body leads to no other

    int64_t end() const { return offset + size; }
};

enum class EndKind : uint8_t {
    AFTER_TAG,   ///< after a tag and its PreviousTagSize, or after a file header
    NO_LINK,     ///< after a tag's body, its PreviousTagSize missing
    CUT_TAG,     ///< inside a tag's body
    LOST,        ///< in a lost range
    READ_FAILED, ///< not the end: what follows could not be read
};

struct End {
    int64_t offset = 0; ///< all before it was walked: the file's size unless reading failed
    EndKind kind = EndKind::AFTER_TAG;
};

enum class ItemKind : uint8_t { FILE_HEADER, INNER_HEADER, TAG, LOST, END };

/// One step of a walk. Only the record that `kind` names is set.
struct Item {
    ItemKind kind = ItemKind::END;
    FileHeader header{}; ///< also of INNER_HEADER
    Tag tag{};
    LostRange lost{};
    End end{};
};

} // namespace zoflv_inspect
