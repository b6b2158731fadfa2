// SPDX-License-Identifier: Apache-2.0
#include "inspect/tag_body.h"

namespace zoflv_inspect {

namespace {

constexpr uint8_t SOUND_AAC = 10;
constexpr uint8_t SOUND_ENHANCED = 9; // SoundFormat 9 announces an enhanced header
constexpr uint8_t VIDEO_AVC = 7;
constexpr uint8_t VIDEO_HEVC = 12; // not of the format, but common: laid out as AVC is
constexpr uint8_t FRAME_KEY = 1;
constexpr uint8_t FRAME_COMMAND = 5;

// Of enhanced headers; the two share most numbers.
constexpr uint8_t MOD_EX = 7;
constexpr uint8_t VIDEO_CODED_FRAMES = 1;
constexpr uint8_t VIDEO_METADATA = 4;
constexpr uint8_t VIDEO_MULTITRACK = 6;
constexpr uint8_t AUDIO_MULTITRACK = 5;
constexpr uint8_t MANY_TRACKS = 1;        // multitrack type: several tracks of one codec
constexpr uint8_t MANY_TRACKS_CODECS = 2; // several tracks, each with its own FourCC

constexpr Packet VIDEO_PACKETS[] = {Packet::CONFIG, Packet::FRAME,    Packet::END,
                                    Packet::FRAME,  Packet::METADATA, Packet::CONFIG};
constexpr Packet AUDIO_PACKETS[] = {Packet::CONFIG, Packet::FRAME, Packet::END, Packet::UNKNOWN,
                                    Packet::CONFIG};
constexpr Packet NUMBERED_PACKETS[] = {Packet::CONFIG, Packet::FRAME, Packet::END}; // AVC and AAC

constexpr uint32_t four(char a, char b, char c, char d)
{
    return uint32_t{static_cast<uint8_t>(a)} << 24 | uint32_t{static_cast<uint8_t>(b)} << 16 |
           uint32_t{static_cast<uint8_t>(c)} << 8 | uint32_t{static_cast<uint8_t>(d)};
}

template <size_t N>
Packet packet_of(const Packet (&table)[N], int type)
{
    return type >= 0 && type < static_cast<int>(N) ? table[type] : Packet::UNKNOWN;
}

// A cursor over the head: what is missing reads as nothing, and stays so.
class Head {
public:
    Head(const uint8_t* data, size_t size) : m_data(data), m_size(size) {}

    bool take(size_t count)
    {
        m_ok = m_ok && count <= m_size - m_at;
        if (m_ok)
            m_at += count;
        return m_ok;
    }
    bool u(int bytes, uint32_t* value)
    {
        const size_t at = m_at;
        if (!take(static_cast<size_t>(bytes)))
            return false;
        *value = 0;
        for (int i = 0; i < bytes; ++i)
            *value = *value << 8 | m_data[at + static_cast<size_t>(i)];
        return true;
    }
    size_t at() const { return m_at; }

private:
    const uint8_t* m_data;
    size_t m_size;
    size_t m_at = 0;
    bool m_ok = true;
};

int32_t signed_24(uint32_t value)
{
    return static_cast<int32_t>(value ^ 0x800000) - 0x800000;
}

// Steps over modifiers: a size less 1 in one byte, or in two after 255, the data, and a byte whose low
// half is the next packet type.
bool skip_modifiers(Head* head, uint32_t* type)
{
    while (*type == MOD_EX) {
        uint32_t size = 0;
        if (!head->u(1, &size) || (size == 255 && !head->u(2, &size)))
            return false;
        uint32_t next = 0;
        if (!head->take(size + 1) || !head->u(1, &next))
            return false;
        *type = next & 0x0F;
    }
    return true;
}

// The packet type, FourCC and track of an enhanced header whose first byte is read.
bool read_enhanced(Head* head, uint32_t type, uint8_t multitrack, BodyInfo* info)
{
    info->enhanced = true;
    if (!skip_modifiers(head, &type))
        return false;
    uint32_t kind = 0;
    if (type == multitrack) {
        info->multitrack = true;
        if (!head->u(1, &kind))
            return false;
        type = kind & 0x0F;
        kind >>= 4;
    }
    info->packet_type = static_cast<int16_t>(type);
    if (!head->u(4, &info->codec.fourcc))
        return false;
    // The track's number; where there are several, each one's size.
    const bool sized = kind == MANY_TRACKS || kind == MANY_TRACKS_CODECS;
    return !info->multitrack || head->take(sized ? 4 : 1);
}

void read_enhanced_video(Head* head, uint8_t first, BodyInfo* info)
{
    info->frame_type = first >> 4 & 7;
    info->keyframe = info->frame_type == FRAME_KEY;
    uint32_t type = first & 0x0F;
    if (!skip_modifiers(head, &type))
        return;
    if (info->frame_type == FRAME_COMMAND && type != VIDEO_METADATA) {
        info->enhanced = true;
        info->packet_type = static_cast<int16_t>(type);
        info->packet = Packet::COMMAND;
        return;
    }
    if (!read_enhanced(head, type, VIDEO_MULTITRACK, info))
        return;
    info->packet = packet_of(VIDEO_PACKETS, info->packet_type);
    const uint32_t codec = info->codec.fourcc;
    uint32_t offset = 0;
    const bool timed = codec == four('a', 'v', 'c', '1') || codec == four('h', 'v', 'c', '1') ||
                       codec == four('v', 'v', 'c', '1');
    if (timed && info->packet_type == VIDEO_CODED_FRAMES && head->u(3, &offset))
        info->composition_ms = signed_24(offset);
}

void read_video(Head* head, uint8_t first, BodyInfo* info)
{
    if (first & 0x80)
        return read_enhanced_video(head, first, info);
    info->frame_type = first >> 4;
    info->keyframe = info->frame_type == FRAME_KEY;
    info->codec.number = first & 0x0F;
    if (info->frame_type == FRAME_COMMAND) {
        info->packet = Packet::COMMAND;
        return;
    }
    info->packet = Packet::FRAME;
    if (info->codec.number != VIDEO_AVC && info->codec.number != VIDEO_HEVC)
        return;
    uint32_t type = 0;
    uint32_t offset = 0;
    info->packet = Packet::UNKNOWN;
    if (!head->u(1, &type))
        return;
    info->packet_type = static_cast<int16_t>(type);
    info->packet = packet_of(NUMBERED_PACKETS, info->packet_type);
    if (head->u(3, &offset) && info->packet == Packet::FRAME)
        info->composition_ms = signed_24(offset);
}

void read_audio(Head* head, uint8_t first, BodyInfo* info)
{
    info->codec.number = first >> 4;
    if (info->codec.number == SOUND_ENHANCED) {
        if (read_enhanced(head, first & 0x0F, AUDIO_MULTITRACK, info))
            info->packet = packet_of(AUDIO_PACKETS, info->packet_type);
        return;
    }
    info->rate_code = first >> 2 & 3;
    info->sample_bits = first & 2 ? 16 : 8;
    info->stereo = first & 1;
    info->packet = Packet::FRAME;
    if (info->codec.number != SOUND_AAC)
        return;
    uint32_t type = 0;
    info->packet = Packet::UNKNOWN;
    if (head->u(1, &type)) {
        info->packet_type = static_cast<int16_t>(type);
        info->packet = type < 2 ? packet_of(NUMBERED_PACKETS, info->packet_type) : Packet::UNKNOWN;
    }
}

} // namespace

BodyInfo read_body_info(uint8_t type, const uint8_t* bytes, size_t size)
{
    BodyInfo info;
    Head head(bytes, size);
    uint32_t first = 0;
    if ((type != TAG_AUDIO && type != TAG_VIDEO) || !head.u(1, &first))
        return info;
    info.known = true;
    if (type == TAG_VIDEO)
        read_video(&head, static_cast<uint8_t>(first), &info);
    else
        read_audio(&head, static_cast<uint8_t>(first), &info);
    info.payload = static_cast<uint32_t>(head.at());
    return info;
}

} // namespace zoflv_inspect
