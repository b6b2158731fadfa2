// SPDX-License-Identifier: Apache-2.0
/// @file
/// Small inputs that between them reach every codec, and the paths with and without an index.
#pragma once

#include "tests/support/flv_builder.h"

#include <algorithm>

struct Seed {
    const char* target;
    const char* name;
    Bytes bytes;
};

inline Bytes avc_record_720()
{
    return avc_record({avc_sps(80, 45)}, {hex("68 CE 38 80")});
}

// Two seconds of interleaved AVC and AAC with three keyframes.
inline FlvBuilder interleaved()
{
    FlvBuilder flv;
    flv.header();
    flv.tag(9, 0, avc_config_tag(avc_record_720())).tag(8, 0, aac_config_tag());
    for (uint32_t i = 0; i < 12; ++i) {
        flv.tag(9, i * 160, avc_tag({fill(20), fill(9)}, i % 4 == 0));
        flv.tag(8, i * 160 + 5, aac_tag(fill(30)));
    }
    return flv.tag(9, 2000, hex("17 02 00 00 00"));
}

inline const Bytes two_seconds = amf_prop("duration", amf_num(2));

// The same with an index whose entries stand `shift` bytes from their tags, but for the first `right`.
inline Bytes with_wrong_index(size_t right, int shift)
{
    // So long that the search near the second entry, in steps of 100 bytes, meets its tag.
    const Bytes creator = amf_prop("creator", amf_str(std::string(30, 'x')));
    const FlvBuilder flv = interleaved().indexed({two_seconds, creator});
    Bytes out = flv.bytes();
    for (const FlvBuilder::Tag& tag : flv.tags()) {
        if (!tag.key || right-- > 0)
            continue;
        const Bytes entry = amf_num(static_cast<double>(tag.pos));
        const Bytes wrong = amf_num(static_cast<double>(tag.pos) + shift);
        std::copy(wrong.begin(), wrong.end(),
                  std::search(out.begin(), out.end(), entry.begin(), entry.end()));
    }
    return out;
}

inline std::vector<Seed> seeds()
{
    const Bytes indexed = interleaved().indexed({two_seconds}).bytes();
    const Bytes bare = interleaved().bytes();
    const Bytes plain = cat({FlvBuilder().header().tag(18, 0, on_meta_data({two_seconds})).bytes(),
                             Bytes(bare.begin() + 13, bare.end())});
    FlvBuilder in_stream;
    in_stream.header(1).tag(9, 0, avc_config_tag(avc_record_720()));
    in_stream.tag(9, 0, avc_tag({fill(20)})).tag(9, 40, avc_config_tag(avc_record_720()));
    FlvBuilder mp3;
    mp3.header(4).tag(8, 0, mp3_tag(fill(60))).tag(8, 26, mp3_tag(fill(60)));
    FlvBuilder scan;
    scan.header(0).tag(9, 0, hex("13 30 A0 30 78 00 00")).tag(8, 0, hex("32 01 02 03 04"));
    const Bytes meta = on_meta_data(
        {two_seconds, amf_prop("width", amf_num(640)), amf_prop("hasVideo", amf_bool(true)),
         amf_prop("creator", amf_str("nobody")), amf_prop("list", amf_array({1, 2})),
         amf_prop("map", amf_ecma(1, {amf_prop("a", amf_num(1))})),
         amf_keyframes({0, 1}, {13, 500})});
    // For the walk over the whole file: lost bytes, an inner header, links of 0, enhanced bodies, and
    // a value of every type.
    const Bytes few = FlvBuilder()
                          .tag(9, 0, avc_config_tag(avc_record_720()))
                          .tag(9, 0, avc_tag({fill(9)}))
                          .tag(8, 9, mp3_tag())
                          .bytes();
    const Bytes start = FlvBuilder().header().bytes();
    Bytes unlinked = FlvBuilder().tag(8, 0, mp3_tag()).bytes();
    std::fill(unlinked.end() - 4, unlinked.end(), uint8_t{0});
    FlvBuilder enhanced;
    enhanced.header().tag(9, 0, hex("90 68 76 63 31 01")).tag(9, 0, hex("A1 68 76 63 31 00 00 43"));
    enhanced.tag(9, 40, hex("97 02 00 00 07 01 76 70 30 39")).tag(8, 0, hex("91 4F 70 75 73 FF"));
    enhanced.tag(0x29, 80, hex("96 11 61 76 63 31 00 00 00 09"));
    const Bytes every_type =
        cat({meta, hex("05 06 07 00 01 0B 00 00 00 00 00 00 00 00 00 00 0C 00 00 00 01 61"),
             hex("0F 00 00 00 01 3C 10 00 01 43 00 01 61 05 00 00 09 04 0D 0E 11 0A")});
    const Bytes calls =
        hex("00 40 00 00 04 80 00 00 08 20 00 00 0C F0 00 00 05 00 00 00 02 00 00 00 07");
    return {
        {"file", "indexed", indexed},
        {"file", "index_a_little_off", with_wrong_index(1, -7)},
        {"file", "index_far_off", with_wrong_index(1, 1 << 20)},
        {"file", "index_wrong_from_the_first", with_wrong_index(0, 3)},
        {"file", "plain", plain},
        {"file", "in_stream_configuration", in_stream.bytes()},
        {"file", "mp3", mp3.bytes()},
        {"file", "no_flags", scan.bytes()},
        {"seek", "indexed", cat({indexed, calls})},
        {"seek", "plain", cat({plain, calls})},
        {"metadata", "known_and_unknown", meta},
        {"metadata", "nested",
         cat({amf_str("onMetaData"),
              hex("08 00 00 00 01 00 01 61"),
              {3},
              amf_prop("b", amf_object({amf_prop("c", amf_array({}))}))})},
        {"headers", "avc", cat({{0}, avc_config_tag(avc_record_720())})},
        {"headers", "h263", hex("00 12 00 00 84 00 81 2C 0B 00 24 2F 7F")},
        {"headers", "screen", hex("00 13 30 A0 30 78 00")},
        {"headers", "screen2", hex("00 16 00 30 A0 30 78 00")},
        {"headers", "vp6", hex("00 14 08 10 46 01 02 1E 28 1E 28 00")},
        {"headers", "vp6a", hex("00 15 08 00 00 10 11 46 00 00 01 02 1E 28 1E 28")},
        {"headers", "mp3", cat({{1}, mp3_tag(fill(20))})},
        {"headers", "aac", cat({{1}, aac_config_tag()})},
        {"headers", "aac_escapes", cat({{1}, aac_config_tag(hex("F8 3E 00 5D C0 40"))})},
        {"headers", "inter_frames_first", hex("08 24 00 80 00 14 00 00 46 01")},
        {"bits", "reads", cat({hex("07 28 48 6F 80 A1 C0 E0 E1 1F 84"), fill(11, 0x41)})},
        {"bits", "rbsp", hex("E1 E0 80 A2 C0 00 00 00 01 67 00 00 03 01")},
        {"inspect", "damaged", cat({start, few, fill(40, 0x40), few, Bytes(30, 0), cut(few, 20)})},
        {"inspect", "glued", cat({start, few, start, few})},
        {"inspect", "unlinked",
         cat({start, unlinked, unlinked, fill(30), unlinked, unlinked, unlinked})},
        {"inspect", "enhanced", enhanced.bytes()},
        {"inspect", "script", FlvBuilder().header().tag(18, 0, every_type).bytes()},
        {"repair", "glued", cat({start, few, start, few})},
        {"repair", "glued_damaged", cat({start, few, fill(40, 0x40), few, start, cut(few, 20)})},
        {"plugin", "indexed", indexed},
        {"plugin", "plain", plain},
        {"plugin", "mp3", mp3.bytes()},
        {"device", "avc", cat({hex("00 00 00 00 01"), avc_sps(80, 45)})},
        {"device", "h263", hex("01 00 00 84 00 81 2C 0B 00 24 2F 7F")},
        {"device", "aac", hex("03 12 10 00 00")},
    };
}

/// A seed of the target "headers" as a file: its stream's tag and a frame after it.
inline Bytes header_seed_file(const Bytes& seed)
{
    const uint8_t type = seed[0] & 1 ? 8 : 9;
    const Bytes size = amf_prop("width", amf_num(64));
    FlvBuilder flv;
    flv.header(type == 8 ? 4 : 1);
    flv.tag(18, 0, on_meta_data({two_seconds, size, amf_prop("height", amf_num(48))}));
    return flv.tag(type, 0, Bytes(seed.begin() + 1, seed.end()))
        .tag(type, 40, Bytes(seed.begin() + 1, seed.end()))
        .bytes();
}
