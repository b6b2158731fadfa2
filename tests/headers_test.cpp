// SPDX-License-Identifier: Apache-2.0
#include "tests/support/demux.h"
#include "zoflv/dmx/zoflvd_avc.h"

namespace {

const Bytes sps64 = avc_sps(4, 3); // 64 x 48
const Bytes pps = hex("68 CE 06");
const Bytes config = avc_config_tag(avc_record({sps64}, {pps}));
const Bytes nal = avc_tag({fill(3)});

/// The bodies are separated by '/'.
Bytes tags(uint8_t type, const std::string& bodies, std::initializer_list<Bytes> props = {})
{
    FlvBuilder b = flv(type == 9 ? 1 : 4, props);
    std::istringstream in(bodies);
    for (std::string body; std::getline(in, body, '/');)
        b.tag(type, 0, hex(body));
    return b.bytes();
}

/// The metadata gives the size.
Bytes video(const std::string& bodies, double width = 8, double height = 8)
{
    return tags(9, bodies,
                {amf_prop("width", amf_num(width)), amf_prop("height", amf_num(height))});
}

std::string h263(uint64_t size_code, const Bytes& custom = {}, uint64_t start = 32)
{
    Bits b;
    b.u(8, 0x22).u(22, start).u(8, 7).u(3, size_code).raw(custom).u(2, 2).u(1, 1).u(5, 9).u(1, 0);
    return to_hex(b.bytes());
}

const std::string init = "sh sh_init() failed";

TEST(Headers, Video)
{
    const std::string avc = to_hex(config), unit = to_hex(nal), sps = to_hex(sps64);
    // The second sequence parameter set is not parsed, the first picture parameter set is empty.
    const std::string two = to_hex(avc_config_tag(avc_record({sps64, fill(2)}, {{}, pps})));
    const std::string with_two =
        "h264 64x48 4608 [00000001" + sps + "000000010001000000010000000168CE06]";
    const std::string bad_sps = to_hex(avc_config_tag(avc_record({hex("27 42 00 1E 88")}, {pps})));
    run({
        {video(h263(0, hex("B090"))), "FLV1 176x144 38016", ""},
        {video(h263(1, hex("01020304"))), "FLV1 258x772 298764", ""},
        {video(h263(7)), "FLV1 8x8 96", ""},
        {video(h263(2)), "FLV1 352x288 152064", ""},
        {video(h263(3)), "FLV1 176x144 38016", ""},
        {video(h263(5)), "FLV1 320x240 115200", ""},
        {video(h263(1, hex("0102")).substr(0, 14)), "FLV1 8x8 96", "rb #166|rb #200|sh #*|cut"},
        {video(h263(2, {}, 64) + "/" + h263(4, {}, 33)), "FLV1 128x96 18432", "sh #*"},
        {video(h263(2, {}, 34) + "/" + h263(6)), "FLV1 160x120 28800",
         "= W zoflvd_h263: unsupported h.263 version 2|sh #*"},
        // Screen video: 3, 160, 3, 120; for the second version after another byte.
        {video("16 00 30A0 3078"), "scr2 224x184 61824", ""},
        {video("/13 30A0 3078"), "scrn 224x184 61824", "rb #157|rb #200|sh #*"},
        // VP6: adjustment, frame header, encoded rows and columns, displayed rows and columns.
        {video("14 48 00 30 0000 1112 1E28"), "vp6  636x472 450288", ""},
        {video("14 00 01 36 0000 1112 1E28"), "vp6  640x480 460800", ""},
        {video("15 00 80FFFF 7E 36 1112 1E28"), "vp6a 640x480 460800", ""},
        {video("24 00 80"), "vp6  8x8 96",
         "sh zoflvd vp6: not an I-Frame, can't get width and height!|cut"},
        {video("11 0102", 20.9, 10), "jpeg 20x10 300 [0102]", ""},
        {video("10", 30000, 30000), "unkn 30000x30000 -797483648", ""}, // wraps
        {video("19/1F", 1e300, 40000), "0 -1x40000 -60000", "sh #*|sh #*|cut"},
        {video(unit + "/" + unit + "/" + two), with_two, ""},
        {video("17 02 000000/" + avc), "h264 8x8 96", ""},
        {video("17 00 000000 01 42 00 1E FF E0 00"), "h264 8x8 96", ""},
        {video("17 00 0000"), "h264 8x8 96", "rb #112|rb #245|sh #*"},
        {video("17 00 000000 01 42 00 1E FF E1 8000"), "h264 8x8 96", "sh #*|sh #*"},
        {video(avc.substr(0, avc.size() - 2)), "h264 8x8 96", "rb #112|sh #*|sh #*"},
        {video("10", -9, 9), "err -3", "sh #*|" + init},
        {video("10", 0x55555555, 1), "err -3", "sh #*|" + init},
        {cut(video("13"), video("13").size() - 5), "err -3", "cut|sh #*|" + init},
        {video("13"), "err -3", "sh #*|" + init, 2},
        {video("19"), "err -3", "sh #*|sh #*|" + init, -1, MemFile::Skip},
        {video(bad_sps), "h264 8x8 96",
         "sh h264 header parsing fail: first byte of sps packet should be 0x67!|sh #*|sh #*"},
    });
}

TEST(Headers, Audio)
{
    const Bytes mp3 = tags(8, "2F FFFB9064");
    run({
        {tags(8, "02 07"), "lpcm 5000x16 1 0 [07]", ""},
        {tags(8, "15"), "apcm 11000x8 2 0", ""},
        {tags(8, "4F"), "nm16 16000x16 2 0", ""},
        {tags(8, "52"), "nm8, 8000x16 1 0", ""},
        {tags(8, "D2 07"), "0 5000x16 1 0 [07]", ""},
        {tags(8, "2F 00FF12 FFFB9064"), "85 44100x16 2 128000 [FFFB9064]", ""},
        {tags(8, "C2 FFF364C4"), "0 24000x16 1 48000 [FFF364C4]", ""},
        // Every version, layer and mode, and the ends of the bitrate tables.
        {tags(8, "2F FFFFE440"), "85 48000x16 2 448000 [FFFFE440]", ""},
        {tags(8, "2F FFFDE880"), "85 32000x16 2 384000 [FFFDE880]", ""},
        {tags(8, "2F FFE31400"), "85 12000x16 2 8000 [FFE31400]", ""},
        {tags(8, "2F FFE2F800"), "85 8000x16 2 0 [FFE2F800]", ""},
        {tags(8, "AF 01 0102"), "255 44000x16 2 0", ""},
        {tags(8, "AF 00 17805DC000"), "255 48000x16 0 0", ""}, // an explicit rate
        {tags(8, "AF 00 F8B8E0"), "255 7350x16 8 0", ""},      // an escaped object type
        {tags(8, "AF 00 1740"), "255 0x16 1 0", ""},
        {mp3, "err -3", "sh #*|" + init, 2},
        {mp3, "err -3", "sh #*|sh #*|sh #*|" + init, 3},
        {cut(mp3, mp3.size() - 5), "err -3", "cut|sh #*"},
        {tags(8, "/"), "err -3", "rb #157|rb #200|sh #*|sh sh_audio() failed|sh #*|" + init},
        {tags(8, "2F FFFB90"), "err -3", "rb #157|rb #200|sh #*|sh #*|" + init},
        {tags(8, "AF 00 12"), "err -3", "rb #166|rb #200|sh #*|sh #*|" + init},
    });
    const struct {
        uint8_t head; // version and layer
        std::vector<int> kbit;
    } rates[] = {
        {0xFF, {0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448, 0}},
        {0xFD, {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384, 0}},
        {0xFB, {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 0}},
        {0xF7, {0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256, 0}},
        {0xF5, {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160, 0}},
        {0xF3, {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160, 0}},
    };
    for (const auto& c : rates) {
        std::vector<int> kbit;
        for (uint8_t i = 0; i < 16; ++i) {
            const Bytes body = {0x2F, 0xFF, c.head, static_cast<uint8_t>(i << 4), 0};
            kbit.push_back(Dmx(flv(4).tag(8, 0, body).bytes()).h->sh[0].bit_rate / 1000);
        }
        EXPECT_EQ(kbit, c.kbit) << int{c.head};
    }
    for (const char* body : {"EF", "2F FFEB9064", "2F FFF99064", "2F FFFB9C64", "AF 02"})
        run({{tags(8, body), "err -3", "sh #*|sh #*|" + init}});
}

TEST(Headers, SearchesAHundredTagsAndTellsRates)
{
    // Video tags before the configuration, audio tags after each, whether it is found.
    const int cases[][3] = {{99, 0, 1}, {100, 0, 0}, {49, 1, 1}, {50, 1, 0}};
    const auto num = [](const char* name, double value) { return amf_prop(name, amf_num(value)); };
    for (const auto& [units, foreign, found] : cases) {
        FlvBuilder b = flv(1, {num("width", 8), num("height", 8), num("duration", 10),
                               num("framerate", 25.7), num("videosize", 1e5)});
        for (int i = 0; i < units * (1 + foreign); ++i)
            b.tag(i % (1 + foreign) ? 8 : 9, 0, nal);
        Dmx d(b.tag(9, 0, config).tag(9, 0, nal).bytes());
        const ZOFLVD_SH& sh = d.h->sh[0];
        EXPECT_EQ(values(sh.width, sh.csd != nullptr), values(found ? 64 : 8, found)) << units;
        const size_t next = b.tags().size() - (found ? 1 : foreign ? 3 : 2);
        const auto pos = static_cast<int64_t>(b.tags()[next].pos); // after the last one examined
        EXPECT_EQ(values(sh.first_tag_pos, sh.data_start), values(pos, pos));
        EXPECT_EQ(values(sh.frm_cnt, sh.frame_rate, sh.byte_rate), values(257, 25, 389 * 25));
        EXPECT_EQ(sh.data_len, static_cast<int64_t>(b.size()) - pos);
    }
}

enum { Lists = 9, Poc0 = -1, Poc2 = -3 };

/// A sequence parameter set. `chroma`: chroma_format_idc, Lists, or -1 for a profile without;
/// `cycle`: the count of order count type 1, or another type.
Bytes sps(uint8_t profile, int chroma, int64_t cycle, uint64_t width, uint64_t height, int fields,
          const std::vector<uint64_t>& crop = {})
{
    Bits b;
    b.raw({0x67, profile, 0x40, 0x1E}).ue(0);
    if (chroma == Lists) {
        b.ue(1).ue(0).ue(0).u(3, 3).u(16, 0xFFFF); // a list of differences of 0
        b.u(1, 1).se(-8).u(5, 1);                  // one ended at once; four are absent
        for (int i = 0; i < 64; ++i)
            b.se(1);
        b.u(1, 1).se(2147483647).se(-2147483647).u(62, ~0ULL);
    } else if (chroma >= 0) {
        b.ue(static_cast<uint64_t>(chroma)).u(chroma == 3, 0).ue(0).ue(0).u(2, 0);
    }
    b.ue(4);
    if (cycle < 0) {
        b.ue(static_cast<uint64_t>(-1 - cycle)).u(cycle == Poc0, 1); // log2_max_... 0
    } else {
        b.ue(1).u(1, 0).se(-3).se(4).ue(static_cast<uint64_t>(cycle));
        for (int64_t i = 0; cycle <= 256 && i < cycle; ++i)
            b.se(1);
    }
    b.ue(3).u(1, 0).ue(width - 1).ue(height - 1).u(1, !fields).u(fields, 1).u(1, 1);
    b.u(1, !crop.empty());
    for (const uint64_t offset : crop)
        b.ue(offset);
    return b.u(1, 0).trailing().bytes();
}

TEST(Headers, SequenceParameterSets)
{
    const struct {
        Bytes unit;
        int width, height; // 8: refused, as the metadata has it
    } cases[] = {
        {sps(77, -1, Poc0, 120, 68, 0, {0, 0, 0, 4}), 1920, 1080},
        {sps(100, 0, Poc2, 4, 3, 0, {1, 2, 3, 4}), 61, 41},
        {sps(110, 1, Poc2, 4, 3, 0, {1, 2, 3, 4}), 58, 34},
        {sps(122, 2, Poc2, 4, 3, 1, {1, 2, 3, 4}), 58, 82},
        {sps(144, 3, Poc2, 4, 3, 0, {1, 2, 3, 4}), 61, 41},
        {sps(244, -1, Poc2, 4, 3, 0, {1, 0, 0, 0}), 62, 48},
        {sps(100, 4, Poc2, 4, 3, 0, {0, 0, 0, 0}), 8, 8},
        {sps(100, Lists, Poc2, 4, 3, 0), 64, 48},
        {sps(66, -1, 255, 4, 3, 0), 64, 48},
        {sps(66, -1, 256, 4, 3, 0), 8, 8},
        {sps(66, -1, 0x80000000, 4, 3, 0), 64, 48}, // negative: none
        {sps(66, -1, Poc2, 1, 1, 0, {4, 4, 0, 0}), 8, 8},
        {sps(66, -1, Poc2, 1, 1, 0, {4, 3, 0, 7}), 2, 2},
        // Sums and products that 32 bits would turn into pictures.
        {sps(66, -1, Poc2, 4, 3, 0, {0xFFFFFFFE, 2, 0, 0}), 8, 8},
        {sps(66, -1, Poc2, 1, 1, 0, {0, 0, 0x40000000, 0x40000000}), 8, 8},
        {sps(66, -1, Poc2, 0x10000004, 3, 0), 8, 8},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        LogCapture log;
        Dmx d(video(to_hex(avc_config_tag(avc_record({c.unit}, {pps})))));
        EXPECT_EQ(values(d.h->sh[0].width, d.h->sh[0].height), values(c.width, c.height));
        EXPECT_TRUE(log.is(lines(c.width == 8 ? "sh #*|sh #*|sh #*" : "")));
    }
}

TEST(Headers, MeasuresARecordAndRaisesTheFrameSize)
{
    const Bytes record = avc_record({Bytes(25, 0x67)}, {Bytes(5, 0x68)});
    MemFile file(record);
    Bytes block(record.size());
    ZOFLVD_RDBUF rb;
    ASSERT_EQ(zoflvd_rdbuf_init(&rb, block.data(), 41, file.mfal(), file.fh(), 1), 0);
    ZOFLVD_SH sh = {};
    int32_t csd = 0;
    int32_t body = 0;
    int32_t all = 0;
    EXPECT_EQ(sh_video_avc_dec_cfg(&sh, &rb, nullptr, &csd, &body, &all), 0);
    EXPECT_EQ(values(csd, body, all, sh.h264_frm_len_size), values(38, 36, 41, 4));
    for (const int type : {9, 18}) { // only audio and video
        sh.strm_type = static_cast<uint8_t>(type);
        zoflvd_sh_upd(&sh, 100 * type);
        zoflvd_sh_upd(&sh, 50);
        EXPECT_EQ(sh.max_frm_size, 900);
    }
}

} // namespace
