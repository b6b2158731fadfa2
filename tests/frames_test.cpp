// SPDX-License-Identifier: Apache-2.0
#include "tests/support/demux.h"

namespace {

const Bytes sps = avc_sps(4, 3);
const Bytes config = avc_config_tag(avc_record({sps}, {hex("68 CE 06")}));
const std::string csd = "00000001" + to_hex(sps) + "0000000168CE06"; // 18 bytes
const std::string two_units = "1701000000 00000005 0102030405 00000002 0607";
const std::string two_frame = "000000010102030405000000010607"; // 15 bytes

/// A configuration, `body` at 40 ms and a unit of one byte at 80 ms: 29 bytes after `body`.
Bytes avc(const std::string& body, int missing = 0, int len_size = 4)
{
    FlvBuilder b = flv(1).tag(9, 0, avc_config_tag(avc_record({sps}, {hex("68 CE 06")}, len_size)));
    b.tag(9, 40, hex(body)).tag(9, 80, avc_tag({{0xAA}}, true, len_size));
    return cut(b.bytes(), b.size() - static_cast<size_t>(missing));
}

/// 5 bytes at 40 ms, 2 at 80 ms.
Bytes pcm(int missing = 0)
{
    const Bytes b = flv(4).tag(8, 40, hex("0E 0102030405")).tag(8, 80, hex("0E 0607")).bytes();
    return cut(b, b.size() - static_cast<size_t>(missing));
}

struct Case {
    Bytes file;
    const char* ops;      ///< q: the length; r: read; r14: into 14 bytes; after ! with the fault,
                          ///< after * without memory
    std::string expected; ///< the code: frame or, if any, length; and if 0 @time>next in ms
    const char* log;
    MemFile::Kind fault = MemFile::Any;
    int nth = -1;
};

void run(const std::vector<Case>& cases)
{
    for (const Case& c : cases) {
        SCOPED_TRACE(c.ops + (" <- " + to_hex(c.file)));
        LogCapture log;
        HeapFaults heap;
        Strm t(c.file);
        std::istringstream in(c.ops);
        std::ostringstream out;
        for (std::string op; in >> op;) {
            t.file.reset().fail(c.fault, op[0] == '!' ? c.nth : -1);
            heap.fail(op[0] == '*' ? 0 : -1);
            op.erase(0, op[0] == '!' || op[0] == '*');
            const int rc = t.read(op == "q" ? -1 : op == "r" ? 4096 : std::stoi(op.substr(1)));
            out << (out.tellp() > 0 ? " " : "") << rc;
            if (rc == 0 && op != "q")
                out << ":" << to_hex(t.frame);
            else if (t.len > 0)
                out << ":" << t.len;
            if (rc == 0)
                out << "@" << t.time / 10000 << ">" << t.next / 10000;
        }
        EXPECT_EQ(out.str(), c.expected);
        EXPECT_TRUE(log.is(lines(c.log)));
    }
}

TEST(Frames, CodesAndWhatFollows)
{
    const std::string one = " 0:00000001AA@80>80 1"; // the last frame's next time is its own
    const std::string two = "0:15@40>40 0:15@40>40 0:" + two_frame + "@40>80" + one;
    for (const int n : {1, 2, 3, 4}) // bytes of a length
        run({{avc(to_hex(avc_tag({fill(5, 1), {6, 7}}, true, n)), 0, n), "q q r15 r q", two, ""}});
    const Bytes cfg = avc(to_hex(config)), units = avc(two_units);
    FlvBuilder b = flv(4).tag(8, 0, aac_config_tag()).tag(8, 40, hex("AF01 010203"));
    const Bytes aac = b.tag(8, 80, hex("AF01")).tag(8, 120, hex("AF00 05")).bytes();
    const std::string last = " 0:0607@80>80";
    run({
        {avc("1701000000 FFFFFFFF 01"), "r r r", "0:0000000101@40>80" + one, ""},
        {avc("1701000000 00000000 00000001 09"), "r9 r r", "0:000000010000000109@40>80" + one, ""},
        {avc("1702000000 00"), "q r0 r r", "0@40>40 0:@40>80" + one, ""}, // no frame in it
        {cfg, "r18 r r", "0:" + csd + "@40>80" + one, ""},
        {cfg, "q r17 r", "0:18@40>40 1 1", "#1004|#1146"},
        {cfg, "*q r r", "1 1 1", "#992|#1146"},
        {avc(to_hex(config), 31), "r r r", "1 1 1", "cut|#998|#1146"},
        {avc("1700000000 0142001EFFE1 0001 27 00"), "q r r", "0:5@40>40 1 1",
         "sh h264 header parsing fail: first byte of sps packet should be 0x67!|sh #*|#1004|#1146"},
        {units, "q r14 r r", "0:15@40>40 1 1 1", "#711|#1018|#1146"},
        {units, "r9 r r", "1 1 1", "#671|#1018|#1146"},
        {avc("1701000000 00000001 01 00000000"), "q r", "1 1", "#701|#1018|#1146"},
        {avc("1701000000 00000009 01", 32), "r r", "1 1", "#691|#1018|#1146"},
        {avc("1701000000 00000009 0102", 30), "q r r", "0:6@40>40 1 1", "#720|#1018|#1146"},
        {avc("1702000000"), "q r r", "1" + one, "#982|#1146"}, // the frame is lost
        {avc("17"), "q r r", "1 1 1", "#1132"},
        // Faults of the file: before the tag is located, in the frame, after it.
        {units, "!q q", "1 0:15@40>40", "#804", MemFile::GetPos, 0},
        {units, "r !r r r", "0:" + two_frame + "@40>80 1" + one, "#789", MemFile::GetPos, 0},
        {units, "!q q", "1 0:15@40>40", "#2595", MemFile::SetPos, 0},
        {units, "q !r q", "0:15@40>40 -1 0:15@40>40", "#1112", MemFile::GetPos, 0},
        {units, "q !r r r", "0:15@40>40 1 1 1", "#952|#1146", MemFile::GetPos, 1},
        {units, "q !r r r", "0:15@40>40 1" + one, "#960|#1146", MemFile::Skip, 0},
        {units, "q !r r", "0:15@40>40 1 1", "#967|#1146", MemFile::Read, 0},
        {units, "q !r r", "0:15@40>40 1 1", "#974|#1146", MemFile::Read, 1},
        {units, "q !r r", "0:15@40>40 1 1", "#662|#1018|#1146", MemFile::GetPos, 2},
        {units, "q !q r", "0:15@40>40 1 1", "#732|#1018|#1146", MemFile::Skip, 2},
        {units, "q !r r", "0:15@40>40 1:15 1", "#743|#1018|#1146", MemFile::GetPos, 3},
        {units, "q !r r", "0:15@40>40 1:15 1", "#1040|#1146", MemFile::SetPos, 0},
        {units, "q !q r", "0:15@40>40 1:15 1", "#1060|#1146", MemFile::SetPos, 0},
        {units, "q !r r", "0:15@40>40 1:15 1", "#830|#865|#1050|#1146", MemFile::Read, 6},
        {units, "q !r r", "0:15@40>40 1:15 1", "#871|#1050|#1146", MemFile::GetPos, 4},
        {units, "!r r r", "0:" + two_frame + "@40>40" + one, "#2595", MemFile::SetPos, 2},
        // Other codecs.
        {aac, "q r2 q r0 r1 r", "0:3@40>40 -4:4 0@80>80 0:@80>120 0:05@120>120 1", ""},
        {flv(4).tag(8, 0xFFFFFEFD, hex("0E01")).bytes(), "r", "0:01@4294967037>4294967037", ""},
        {pcm(), "q r5 r2 r r", "0:5@40>40 0:0102030405@40>80" + last + " 1 1", ""},
        {pcm(), "r4 r r", "-4:5" + last + " 1", ""},
        {pcm(4), "r !r r", "0:0102030405@40>80 -1:2 1", "#830|#865"},
        {pcm(5), "r r r", "0:0102030405@40>80 1:2 1", "#1196"},
        {pcm(), "q !r r r", "0:5@40>40 1:5" + last + " 1", "#1190", MemFile::Skip, 0},
        {pcm(), "q !r r", "0:5@40>40 -1:5" + last, "#871", MemFile::GetPos, 1},
        {pcm(), "q !r r", "0:5@40>40 0:0102030405@40>40 1", "cut", MemFile::Read, 2},
        {pcm(), "q !r4 r r", "0:5@40>40 1:5" + last + " 1", "#912", MemFile::Skip, 0},
        {pcm(), "q !r4", "0:5@40>40 1:5", "#830|#865|#916", MemFile::Read, 0},
    });
}

TEST(Frames, BrokenState)
{
    Strm t(avc(two_units));
    LogCapture log;
    EXPECT_EQ(zoflvds_get_frm(t.s, nullptr, 0, nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(zoflvds_get_frm(t.s, nullptr, 0, &t.len, nullptr, nullptr), 0);
    zoflv_file_setpos(&t.s->mfal, t.s->fh, t.s->cur_tag.pos + 12);
    EXPECT_EQ(t.read(), -1);
    zoflv_file_setpos(&t.s->mfal, t.s->fh, t.s->cur_tag.pos + 11);
    EXPECT_EQ(t.read(), 0);
    zoflv_file_setpos(&t.s->mfal, t.s->fh, 0);
    EXPECT_EQ(t.read(), 1);
    t.s->fetch_tag = t.s->cur_tag.found = 0;
    EXPECT_EQ(t.read(), -1);
    Strm unset(avc(two_units)); // as without a configuration
    unset.s->sh.h264_frm_len_size = 0;
    EXPECT_EQ(unset.read(-1), 1);
    EXPECT_EQ(unset.read(), 1);
    EXPECT_TRUE(log.is(lines("err: frame data fp is wrong!|#793|#1108|"
                             "h264_frm_len_size error.|#1018|#1146")));
}

TEST(Frames, Cost)
{
    FlvBuilder b = flv(5).tag(9, 0, config);
    for (int i = 0; i < 16; ++i) // three audio tags after each picture
        b.tag(i % 4 ? 8 : 9, 0, hex(i % 4 ? "0E 0102030405" : two_units));
    // Stream, reads, bytes, reads for the length alone.
    // AVC: packet type, composition time, 2 x (length, unit), PreviousTagSize, 3 foreign tags and
    // the next. PCM, the third one: payload, PreviousTagSize, 1 foreign tag and the next.
    const int cases[][4] = {{1, 2 + 4 + 1 + 4, 4 + 15 + 4 + 4 * 11, 2 + 2},
                            {0, 1 + 1 + 2, 5 + 4 + 2 * 11, 0}};
    for (const auto& c : cases) {
        Strm t(b.bytes(), c[0]);
        EXPECT_EQ(values(t.read(), t.read()), values(0, 0));
        HeapFaults heap;
        t.file.reset();
        EXPECT_EQ(t.read(), 0);
        EXPECT_EQ(heap.count(), 0);
        EXPECT_EQ(values(t.file.calls(MemFile::Read), t.file.bytes_read), values(c[1], c[2]));
        t.file.reset();
        EXPECT_EQ(t.read(-1), 0);
        EXPECT_EQ(t.file.calls(MemFile::Read), c[3]);
    }
}

TEST(Streams, InformationAndCodecData)
{
    // A new configuration changes the stream's record and what follows, not the demuxer's.
    FlvBuilder b = flv(1).tag(9, 0, config);
    b.tag(9, 0, avc_config_tag(avc_record({avc_sps(2, 2)}, {}, 1)));
    Strm t(b.tag(9, 0, hex("1701000000 02 0607")).bytes());
    LogCapture log;
    ZOFLVD_INFO_VID v;
    EXPECT_EQ(t.read(), 0);
    EXPECT_EQ(zoflvds_get_info_vid(t.s, &v), 0);
    EXPECT_EQ(v.width, 32);
    EXPECT_EQ(t.read(), 0);
    EXPECT_EQ(to_hex(t.frame), "000000010607");
    EXPECT_EQ(t.text(), "h264 64x48 4608 [" + csd + "]");
    Bytes buf(csd.size() / 2);
    EXPECT_EQ(zoflvds_get_format(t.s, buf.data(), nullptr), 0);
    EXPECT_EQ(to_hex(buf), csd);
    EXPECT_EQ(zoflvd_get_format(t.h, 1, nullptr, nullptr), -1);
    t.s->sh.csd_size = 0; // codec data of no size
    EXPECT_EQ(zoflvds_get_format(t.s, nullptr, nullptr), -3);
    EXPECT_FALSE(zoflvds_open(t.h, 1, nullptr) || zoflvds_open(nullptr, 0, nullptr));
    EXPECT_TRUE(log.is(lines("#2161|#2413")));
    EXPECT_EQ(values(t.file.last_mode, Strm(pcm()).file.last_mode), values(6, 2));
}

} // namespace
