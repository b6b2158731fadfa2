// SPDX-License-Identifier: Apache-2.0
#include "inspect/codec_names.h"

#include <iterator>

namespace zoflv_inspect {

namespace {

struct CodecName {
    const char* name;
    bool flv_10_1;
};

constexpr CodecName VIDEO_CODECS[] = {
    {"reserved", false},      // 0
    {"JPEG", false},          // 1: of the first players, never published
    {"Sorenson H.263", true}, // 2
    {"Screen Video", true},   // 3
    {"VP6", true},            // 4
    {"VP6 with alpha", true}, // 5
    {"Screen Video 2", true}, // 6
    {"H.264", true},          // 7
    {"H.263", false},         // 8: by some encoders
    {"MPEG-4 Visual", false}, // 9: by some encoders
    {"reserved", false},      // 10
    {"reserved", false},      // 11
    {"H.265", false},         // 12: by many servers, before it had a FourCC
    {"AV1", false},           // 13: as 12
    {"reserved", false},      // 14
    {"reserved", false},      // 15
};
static_assert(std::size(VIDEO_CODECS) == 16, "one row per CodecID");

constexpr CodecName AUDIO_CODECS[] = {
    {"PCM", true},                   // 0: of the writer's byte order
    {"ADPCM", true},                 // 1
    {"MP3", true},                   // 2
    {"PCM little endian", true},     // 3
    {"Nellymoser 16 kHz", true},     // 4: mono
    {"Nellymoser 8 kHz", true},      // 5: mono
    {"Nellymoser", true},            // 6
    {"G.711 A-law", true},           // 7
    {"G.711 mu-law", true},          // 8
    {"reserved", false},             // 9: now an enhanced header
    {"AAC", true},                   // 10
    {"Speex", true},                 // 11
    {"reserved", false},             // 12
    {"Opus", false},                 // 13: by some servers
    {"MP3 8 kHz", true},             // 14
    {"device-specific sound", true}, // 15
};
static_assert(std::size(AUDIO_CODECS) == 16, "one row per SoundFormat");

struct FourCcName {
    char code[5];
    const char* name;
};
constexpr FourCcName FOURCCS[] = {
    {"avc1", "H.264"}, {"hvc1", "H.265"}, {"vvc1", "H.266"},  {"av01", "AV1"},
    {"vp08", "VP8"},   {"vp09", "VP9"},   {"mp4a", "AAC"},    {"Opus", "Opus"},
    {"fLaC", "FLAC"},  {"ac-3", "AC-3"},  {"ec-3", "E-AC-3"}, {".mp3", "MP3"},
};

constexpr const char* FRAME_TYPES[] = {"reserved",           "keyframe",
                                       "inter frame",        "disposable inter frame",
                                       "generated keyframe", "command"};

// In the order of their enumerations.
constexpr const char* PACKETS[] = {"frame", "config", "end", "metadata", "command", "unknown"};
constexpr const char* LINKS[] = {"right", "missing", "zero", "body", "plus 4", "plus 15", "other"};
static_assert(std::size(PACKETS) == static_cast<size_t>(Packet::UNKNOWN) + 1, "one per packet");
static_assert(std::size(LINKS) == static_cast<size_t>(Link::OTHER_WRONG) + 1, "one per link");

constexpr uint32_t SOUND_RATES[] = {5512, 11025, 22050, 44100};
constexpr uint32_t AAC_RATES[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                  22050, 16000, 12000, 11025, 8000,  7350};

struct NumberName {
    uint8_t number;
    const char* name;
};
constexpr NumberName AAC_OBJECTS[] = {
    {1, "AAC Main"},   {2, "AAC LC"},     {3, "AAC SSR"},    {4, "AAC LTP"},     {5, "HE-AAC"},
    {17, "ER AAC LC"}, {23, "ER AAC LD"}, {29, "HE-AAC v2"}, {39, "ER AAC ELD"}, {42, "xHE-AAC"},
};
constexpr NumberName AVC_PROFILES[] = {
    {44, "CAVLC 4:4:4 Intra"},
    {66, "Baseline"},
    {77, "Main"},
    {83, "Scalable Baseline"},
    {86, "Scalable High"},
    {88, "Extended"},
    {100, "High"},
    {110, "High 10"},
    {118, "Multiview High"},
    {122, "High 4:2:2"},
    {128, "Stereo High"},
    {244, "High 4:4:4 Predictive"},
};
constexpr uint8_t PROFILE_BASELINE = 66;
constexpr uint8_t PROFILE_EXTENDED = 88;
constexpr uint8_t CONSTRAINT_SET1 = 0x40;
constexpr uint8_t CONSTRAINT_SET3 = 0x10;

template <typename Row, size_t N>
const char* name_of(const Row (&table)[N], uint8_t number)
{
    for (const Row& row : table)
        if (row.number == number)
            return row.name;
    return nullptr;
}

} // namespace

const char* video_codec_name(uint8_t codec_id)
{
    return VIDEO_CODECS[codec_id & 15].name;
}

const char* audio_codec_name(uint8_t sound_format)
{
    return AUDIO_CODECS[sound_format & 15].name;
}

bool is_flv_10_1(bool video, const Codec& codec)
{
    const int number = codec.number & 15;
    return codec.fourcc == 0 && (video ? VIDEO_CODECS : AUDIO_CODECS)[number].flv_10_1;
}

const char* fourcc_name(uint32_t fourcc)
{
    for (const FourCcName& row : FOURCCS) {
        uint32_t code = 0;
        for (int i = 0; i < 4; ++i)
            code = code << 8 | static_cast<uint8_t>(row.code[i]);
        if (code == fourcc)
            return row.name;
    }
    return nullptr;
}

std::string fourcc_text(uint32_t fourcc)
{
    constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8) {
        const auto byte = static_cast<uint8_t>(fourcc >> shift);
        if (byte > 0x20 && byte < 0x7F)
            text += static_cast<char>(byte);
        else
            text += {'\\', 'x', digits[byte >> 4], digits[byte & 15]};
    }
    return text;
}

std::string codec_name(bool video, const Codec& codec)
{
    if (codec.fourcc == 0)
        return video ? video_codec_name(codec.number) : audio_codec_name(codec.number);
    const char* name = fourcc_name(codec.fourcc);
    return std::string(name ? name : "unknown") + " (" + fourcc_text(codec.fourcc) + ")";
}

const char* frame_type_name(uint8_t frame_type)
{
    return FRAME_TYPES[frame_type < std::size(FRAME_TYPES) ? frame_type : 0];
}

const char* packet_name(Packet packet)
{
    return PACKETS[static_cast<size_t>(packet)];
}

const char* link_name(Link link)
{
    return LINKS[static_cast<size_t>(link)];
}

const char* tag_type_name(uint8_t type)
{
    switch (type) {
    case TAG_AUDIO:
        return "audio";
    case TAG_VIDEO:
        return "video";
    case TAG_SCRIPT:
        return "script";
    default:
        return nullptr;
    }
}

uint32_t sound_rate_hz(uint8_t rate_code)
{
    return rate_code < std::size(SOUND_RATES) ? SOUND_RATES[rate_code] : 0;
}

uint32_t aac_rate_hz(uint8_t index)
{
    return index < std::size(AAC_RATES) ? AAC_RATES[index] : 0;
}

const char* aac_object_name(uint8_t object_type)
{
    return name_of(AAC_OBJECTS, object_type);
}

const char* avc_profile_name(uint8_t profile_idc, uint8_t constraints)
{
    if (profile_idc == PROFILE_BASELINE && (constraints & CONSTRAINT_SET1))
        return "Constrained Baseline";
    return name_of(AVC_PROFILES, profile_idc);
}

std::string avc_level_name(uint8_t profile_idc, uint8_t constraints, uint8_t level_idc)
{
    // Level 1b is 9, or 11 with a flag in the profiles that had no other way to say so.
    const bool old = profile_idc == PROFILE_BASELINE || profile_idc == 77 /* Main */ ||
                     profile_idc == PROFILE_EXTENDED;
    if (level_idc == 9 || (level_idc == 11 && old && (constraints & CONSTRAINT_SET3)))
        return "1b";
    std::string text = std::to_string(level_idc / 10);
    if (level_idc % 10 != 0)
        text += '.' + std::to_string(level_idc % 10);
    return text;
}

} // namespace zoflv_inspect
