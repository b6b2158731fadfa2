// SPDX-License-Identifier: Apache-2.0
#include "inspect/first_bytes.h"

#include <algorithm>
#include <cstdio>
#include <string_view>

namespace zoflv_inspect {

namespace {

using namespace std::string_view_literals;

constexpr size_t LOOKED_AT = 512;

/// What people take for FLV files, by the bytes that show it.
constexpr struct {
    size_t offset;
    std::string_view bytes;
    const char* name;
} KINDS[] = {
    {4, "ftyp"sv, "an MP4 or QuickTime file"},
    {4, "moov"sv, "an MP4 or QuickTime file"},
    {4, "mdat"sv, "an MP4 or QuickTime file"},
    {0, "\x1A\x45\xDF\xA3"sv, "a Matroska or WebM file"},
    {0, "RIFF"sv, "an AVI or WAV file"},
    {0, "OggS"sv, "an Ogg file"},
    {0, "\x30\x26\xB2\x75"sv, "an ASF file"},
    {0, "\x00\x00\x01\xBA"sv, "an MPEG program stream"},
    {188, "\x47"sv, "an MPEG transport stream"}, // a packet after the first; see below
    {0, "\x00\x00\x00\x01"sv, "a bare H.264 stream"},
    {0, "FWS"sv, "an SWF file"},
    {0, "CWS"sv, "an SWF file"},
    {0, "#EXTM3U"sv, "a playlist"},
    {0, "<"sv, "a page of HTML or XML"},
    {0, "{"sv, "a JSON text"},
    {0, "PK\x03\x04"sv, "a ZIP archive"},
    {0, "\x1F\x8B"sv, "a gzip archive"},
    {0, "7z\xBC\xAF"sv, "a 7z archive"},
    {0, "Rar!"sv, "a RAR archive"},
    {0, "%PDF"sv, "a PDF file"},
};

const char* kind_of(std::string_view head)
{
    for (const auto& kind : KINDS) {
        const bool packets = kind.offset == 188;
        if (head.size() > kind.offset &&
            head.substr(kind.offset, kind.bytes.size()) == kind.bytes &&
            (!packets || head[0] == '\x47'))
            return kind.name;
    }
    return nullptr;
}

bool is_text(char c)
{
    return c >= ' ' && c <= '~';
}

} // namespace

FirstBytes read_first_bytes(ByteSource& source)
{
    constexpr size_t most_text = 24, most_bytes = 8;
    char buffer[LOOKED_AT];
    const int64_t count = source.read_at(0, buffer, sizeof buffer);
    if (count < 0)
        return {"it cannot be read", true};
    if (count == 0)
        return {"it is empty", true};
    const std::string_view head(buffer, static_cast<size_t>(count));
    if (head.substr(0, 3) == "FLV")
        return {};
    if (head.substr(0, 3) == "ID3")
        return {"it begins with an ID3 tag"};
    if (const char* kind = kind_of(head))
        return {std::string("it begins as ") + kind + " does", true};
    if (head.find_first_not_of('\0') == head.npos)
        return {"it begins with zeros"};
    const auto text_end = std::find_if_not(head.begin(), head.end(), is_text);
    const std::string_view text =
        head.substr(0, std::min(static_cast<size_t>(text_end - head.begin()), most_text));
    const bool whole = text_end == head.end() || *text_end == '\n' || *text_end == '\r';
    if (text.size() >= most_bytes || (whole && !text.empty()))
        return {"it begins with the text \"" + std::string(text) + '"'};
    std::string bytes;
    for (const char c : head.substr(0, most_bytes)) {
        char hex[4];
        std::snprintf(hex, sizeof hex, " %02X", static_cast<unsigned char>(c));
        bytes += hex;
    }
    return {"it begins with the bytes" + bytes};
}

} // namespace zoflv_inspect
