// SPDX-License-Identifier: Apache-2.0
/// @file
/// Files told in short texts, and a stream handle over one without an open.
#pragma once

#include "tests/support/demux.h"

/// A file header and tags: K a video keyframe, P another video frame, A audio, S a script, each with
/// its time in ms; after a colon a body size other than 2 bytes; after a star the distance of the
/// tag's index entry from it, in bytes and, after a comma, in 100 ns: "S0 K40*0 A40:900 K80*-5,9".
inline FlvBuilder short_file(const std::string& text, std::vector<ZOFLVD_KF>* index = nullptr)
{
    FlvBuilder flv;
    flv.header();
    std::istringstream in(text);
    for (std::string word; in >> word;) {
        const auto number = [&word](char mark, long long none) {
            const size_t at = word.find(mark);
            return at == std::string::npos ? none : std::stoll(word.substr(at + 1));
        };
        const char kind = word[0];
        const auto ms = static_cast<uint32_t>(number(kind, 0));
        Bytes body(static_cast<size_t>(number(':', 2)), 0xAA);
        body[0] = kind == 'K' ? 0x17 : kind == 'P' ? 0x27 : 0x2F;
        if (index && word.find('*') != std::string::npos)
            index->push_back(
                {ms * MS + number(',', 0), static_cast<int64_t>(flv.size()) + number('*', 0)});
        flv.tag(kind == 'A' ? 8 : kind == 'S' ? 18 : 9, ms, body);
    }
    return flv;
}

/// Expected log lines as lines() makes them; C stands for a failed check of "zoflvd_crawl".
inline LogCapture::Lines logged(const std::string& texts)
{
    LogCapture::Lines out = lines(texts);
    std::replace(out.begin(), out.end(), std::string("E zoflvd: C"),
                 std::string("E zoflvd_crawl: #*"));
    return out;
}

/// A stream of an unknown codec whose data begins after the file header.
struct BareStrm {
    explicit BareStrm(const Bytes& bytes, uint8_t type = 9, int64_t duration = 0,
                      const std::vector<ZOFLVD_KF>& index = {})
        : file(bytes)
    {
        s.magic = ZOFLVDS_MAGIC;
        s.mfal = *file.mfal();
        s.fh = file.seek(13).fh();
        s.fetch_tag = 1;
        s.sh.strm_type = type;
        s.sh.duration = duration;
        s.sh.first_tag_pos = s.sh.data_start = 13;
        s.sh.file_size = static_cast<int64_t>(bytes.size());
        s.sh.data_len = s.sh.file_size - 13;
        zoflvd_mblk_ctor(&s.idx, sizeof(ZOFLVD_KF));
        for (const ZOFLVD_KF& kf : index)
            EXPECT_EQ(zoflvd_mblk_elem_add(&s.idx, &kf), 0);
    }
    ~BareStrm() { zoflvd_mblk_dtor(&s.idx); }

    int seek(int64_t target, int mode) { return zoflvds_seek(&s, &target, &out, mode); }
    int seek(int mode) { return zoflvds_seek(&s, nullptr, &out, mode); }
    int read(bool query = false)
    {
        uint8_t buf[4096];
        return zoflvds_get_frm(&s, query ? nullptr : buf, sizeof buf, &len, &time, nullptr);
    }

    MemFile file;
    ZOFLVDS s{};
    int64_t out = -77; ///< the time that a seek gave
    int64_t time = 0;  ///< of the frame read
    int len = 0;
};
