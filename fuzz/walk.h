// SPDX-License-Identifier: Apache-2.0
/// @file
/// Opens a file and does everything that the interface offers, twice: through the demuxer, and through
/// the plugin as the framework does. Golden tests, fault loops and fuzz targets all call these.
///
/// Whatever the file holds, results must be documented ones and frames must fit their buffers: a walk
/// ends the process when they are not. Buffers are heap blocks of exactly the size told, so that a
/// sanitizer sees any byte too far.
#pragma once

#include "zoflv/dmx/zoflvd.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <memory>

/// Ends the process unless the condition holds.
#define WALK_CHECK(condition)                                                                      \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            std::fprintf(stderr, "%s:%d: %s\n", __FILE__, __LINE__, #condition);                   \
            std::abort();                                                                          \
        }                                                                                          \
    } while (0)

/// What a walk chooses by: plain arithmetic on a seed, so that a walk is repeated by its seed.
class WalkChoice {
public:
    explicit WalkChoice(uint32_t seed) : state(seed) {}
    uint32_t operator()(uint32_t below)
    {
        state = state * 1664525 + 1013904223;
        return static_cast<uint32_t>(uint64_t{state} * below >> 32);
    }

private:
    uint32_t state;
};

/// A seed from the bytes themselves (FNV-1a): a corpus is plain files, and a crash replays.
inline uint32_t walk_seed(const uint8_t* data, size_t size)
{
    uint32_t hash = 2166136261U;
    for (size_t i = 0; i < size; ++i)
        hash = (hash ^ data[i]) * 16777619U;
    return hash;
}

/// What a walk met.
struct WalkResult {
    bool opened = false;
    int streams = 0;
    int64_t frames = 0;
    int64_t bytes = 0; ///< of the frames
    uint32_t hash = 0; ///< of times, lengths and bytes of all frames read in order
};

inline bool walk_is_one_of(int rc, std::initializer_list<int> codes)
{
    for (const int code : codes) {
        if (rc == code)
            return true;
    }
    return false;
}

class DemuxerWalk {
public:
    DemuxerWalk(_ZOCMN_MFAL* record, uint32_t seed) : mfal(record), choose(seed) {}

    WalkResult run()
    {
        const int64_t duration = choose(8) == 0 ? int64_t{choose(1 << 30)} * 1000 : 0;
        int err = 77;
        ZOFLVD_INFO info;
        h = zoflvd_create(mfal, &duration, &info, &err);
        if (!h) {
            WALK_CHECK(walk_is_one_of(err, {0, -1, -3, -5, -6}));
            return result;
        }
        WALK_CHECK(err == 0 && info.strm_cnt >= 1 && info.strm_cnt <= ZOFLV_MAX_STREAMS);
        result.opened = true;
        result.streams = info.strm_cnt;
        WALK_CHECK(zoflvd_get_info(h, &info) == 0 && info.region_cnt == 1);
        misuse(info);
        for (int i = -1; i <= info.strm_cnt; ++i)
            query(i, i >= 0 && i < info.strm_cnt);
        for (int i = 0; i < info.strm_cnt; ++i)
            read_stream(i, info.duration);
        zoflvd_delete(h);
        return result;
    }

private:
    using Block = std::unique_ptr<uint8_t[]>;

    // Every operation without its handle, or without the place for its result.
    void misuse(ZOFLVD_INFO info)
    {
        ZOFLVD_INFO_VID video;
        ZOFLVD_INFO_AUD audio;
        int size = 0;
        int64_t time = 0;
        int err = 77;
        WALK_CHECK(!zoflvd_create(nullptr, &time, &info, &err) && err == 0);
        WALK_CHECK(!zoflvd_create(mfal, nullptr, &info, nullptr));
        WALK_CHECK(!zoflvd_create(mfal, &time, nullptr, nullptr));
        zoflvd_delete(nullptr);
        zoflvds_close(nullptr);
        const int codes[] = {
            zoflvd_get_info(nullptr, &info),
            zoflvd_get_info(h, nullptr),
            zoflvd_get_info_vid(nullptr, 0, &video),
            zoflvd_get_info_vid(h, 0, nullptr),
            zoflvd_get_info_aud(nullptr, 0, &audio),
            zoflvd_get_info_aud(h, 0, nullptr),
            zoflvd_get_format(nullptr, 0, nullptr, &size),
            zoflvd_get_idx_table(nullptr, 0, nullptr, 0, &size, &size),
            zoflvds_get_info_vid(nullptr, &video),
            zoflvds_get_info_aud(nullptr, &audio),
            zoflvds_get_format(nullptr, nullptr, &size),
            zoflvds_get_idx_table(nullptr, nullptr, 0, &size, &size),
            zoflvds_get_frm(nullptr, nullptr, 0, &size, &time, &time),
            zoflvds_seek(nullptr, &time, &time, 0),
        };
        for (const int code : codes)
            WALK_CHECK(code == -1);
        WALK_CHECK(!zoflvds_open(nullptr, 0, nullptr));
    }

    // A call that tells a size first and then wants a buffer of it.
    template <typename Query>
    void sized(Query ask)
    {
        int size = 0;
        if (ask(nullptr, &size) != 0)
            return;
        WALK_CHECK(size >= 0);
        const Block block(new uint8_t[static_cast<size_t>(size) + (size == 0)]);
        ask(block.get(), &size);
    }

    void query(int index, bool exists)
    {
        ZOFLVD_INFO_VID video;
        ZOFLVD_INFO_AUD audio;
        WALK_CHECK(zoflvd_get_info_vid(h, index, &video) == (exists ? 0 : -1));
        WALK_CHECK(zoflvd_get_info_aud(h, index, &audio) == (exists ? 0 : -1));
        sized([&](void* buf, int* size) {
            const int rc = zoflvd_get_format(h, index, buf, size);
            WALK_CHECK(rc == (exists ? 0 : -1));
            return rc;
        });
        sized([&](void* buf, int* size) {
            int count = 0;
            const int capacity = *size;
            const int rc = zoflvd_get_idx_table(h, index, buf, capacity, size, &count);
            WALK_CHECK(walk_is_one_of(rc, {0, -1, -2, -5, -6}));
            WALK_CHECK(rc != 0 || *size == count * 16);
            return rc;
        });
    }

    void read_stream(int index, int64_t duration)
    {
        int err = 77;
        s = zoflvds_open(h, index, &err);
        if (!s) {
            WALK_CHECK(walk_is_one_of(err, {-5, -6}));
            return;
        }
        ZOFLVD_INFO_VID video;
        ZOFLVD_INFO_AUD audio;
        WALK_CHECK(zoflvds_get_info_vid(s, &video) == 0 && zoflvds_get_info_aud(s, &audio) == 0);
        WALK_CHECK(zoflvds_get_info_vid(s, nullptr) == -1);
        WALK_CHECK(zoflvds_get_info_aud(s, nullptr) == -1);
        sized([&](void* buf, int* size) { return zoflvds_get_format(s, buf, size); });
        sometimes_short = choose(2) == 0;
        for (int failures = 0; failures < 3;) // some failures drop a frame only
            failures += walk_is_one_of(read_frame(), {0, -4}) ? 0 : 1;
        seek_about(duration);
        zoflvds_close(s);
    }

    int read_frame()
    {
        int size = 1 << 16;
        int64_t asked_time = 0;
        int64_t next_time = 0;
        const bool ask = choose(4) != 0;
        if (ask) {
            const int rc = zoflvds_get_frm(s, nullptr, 0, &size, &asked_time, &next_time);
            WALK_CHECK(walk_is_one_of(rc, {0, 1, -1}));
            if (rc != 0)
                return rc;
            WALK_CHECK(size >= 0 && next_time == asked_time);
            if (sometimes_short && choose(16) == 0 && size > 0)
                --size; // one byte less: dropped, or the end of an AVC stream
        }
        const Block block(new uint8_t[static_cast<size_t>(size) + (size == 0)]);
        int length = 0;
        int64_t time = 0;
        const int rc = zoflvds_get_frm(s, block.get(), size, &length, &time, &next_time);
        WALK_CHECK(walk_is_one_of(rc, {0, 1, -1, -4}));
        if (rc != 0)
            return rc;
        WALK_CHECK(length >= 0 && length <= size && (!ask || time == asked_time));
        ++result.frames;
        result.bytes += length;
        add(static_cast<uint64_t>(time));
        add(static_cast<uint64_t>(length));
        for (int i = 0; i < length; ++i)
            result.hash = (result.hash ^ block[static_cast<size_t>(i)]) * 16777619U;
        return rc;
    }

    void add(uint64_t value)
    {
        for (int i = 0; i < 8; ++i)
            result.hash = (result.hash ^ static_cast<uint8_t>(value >> 8 * i)) * 16777619U;
    }

    void seek_about(int64_t duration)
    {
        const int64_t times[] = {
            0, 1, duration / 3, duration, duration / 2 + choose(1 << 20), -1, INT64_MAX};
        for (const int64_t time : times) {
            const int mode = static_cast<int>(choose(6)) - 1; // -1 and 4 are none
            seek(&time, mode);
        }
        seek(nullptr, 1);
        seek(nullptr, 2);
        seek(nullptr, 0);
    }

    void seek(const int64_t* time, int mode)
    {
        int64_t landed = 0;
        const int rc = zoflvds_seek(s, time, &landed, mode);
        WALK_CHECK(walk_is_one_of(rc, {0, 1, -1, -3, -6}));
        WALK_CHECK((mode >= 0 && mode <= 3) || rc == -1);
        read_frame();
        read_frame();
    }

    _ZOCMN_MFAL* mfal;
    WalkChoice choose;
    ZOFLVD* h = nullptr;
    ZOFLVDS* s = nullptr;
    bool sometimes_short = false; ///< the buffer
    WalkResult result;
};

inline WalkResult walk_demuxer(_ZOCMN_MFAL* mfal, uint32_t seed)
{
    return DemuxerWalk(mfal, seed).run();
}
