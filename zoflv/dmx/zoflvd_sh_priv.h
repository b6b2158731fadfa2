// SPDX-License-Identifier: Apache-2.0
/// @file
/// What the codec header readers share: their results, log lines and codec-specific data. Only they
/// include this. All log as "zoflvd_sh".
#pragma once

#include "zoflv/dmx/zoflv_log.h"
#include "zoflv/dmx/zoflv_mem.h"
#include "zoflv/dmx/zoflvd_rdbuf.h"
#include "zoflv/dmx/zoflvd_sh.h"

#include <cstdint>
#include <cstdlib>

constexpr char ZOFLVD_SH_LOG_TAG[] = "zoflvd_sh";

/// Results of a codec's reader. Of a video reader DONE and STOP end the search for a header, all
/// others ask for the stream's next tag; of an audio reader DONE is success, all others fail the
/// stream.
enum : int32_t {
    ZOFLVD_SH_DONE = 0,
    ZOFLVD_SH_STOP = 1,
    ZOFLVD_SH_AGAIN = -1,
};

/// A codec's reader.
/// @param codec  the FLV CodecID or SoundFormat
/// @param rb     the tag's body after its one-byte codec header
using ZOFLVD_SH_HANDLER = int32_t (*)(uint32_t codec, ZOFLVD_SH* sh, ZOFLVD_RDBUF* rb);

int32_t sh_video_avc(uint32_t codec, ZOFLVD_SH* sh, ZOFLVD_RDBUF* rb);
int32_t sh_video_h263(uint32_t codec, ZOFLVD_SH* sh, ZOFLVD_RDBUF* rb);
int32_t sh_video_scrn(uint32_t codec, ZOFLVD_SH* sh, ZOFLVD_RDBUF* rb);
int32_t sh_video_vp6(uint32_t codec, ZOFLVD_SH* sh, ZOFLVD_RDBUF* rb);
int32_t sh_audio_mpeg(uint32_t codec, ZOFLVD_SH* sh, ZOFLVD_RDBUF* rb);
int32_t sh_audio_aac(uint32_t codec, ZOFLVD_SH* sh, ZOFLVD_RDBUF* rb);

/// Keeps the unread rest of the buffer as codec-specific data; the read position does not move.
int32_t sh_format(ZOFLVD_SH* sh, const ZOFLVD_RDBUF* rb);

/// Logs a failed check. -1.
inline int zoflvd_sh_fail(int check)
{
    zoflv_log_assert(ZOFLVD_SH_LOG_TAG, "zoflv/dmx/zoflvd_sh", check);
    return -1;
}

inline void zoflvd_sh_log_error(const char* text)
{
    __android_log_print(ANDROID_LOG_ERROR, ZOFLVD_SH_LOG_TAG, "%s", text);
}

inline zoflv_block zoflvd_sh_alloc_csd(uint32_t size)
{
    zoflv_block csd = zoflv_alloc(size);
    if (!csd)
        zoflvd_sh_fail(3001);
    return csd;
}

inline void zoflvd_sh_release_csd(ZOFLVD_SH* sh)
{
    std::free(sh->csd);
    sh->csd = nullptr;
    sh->csd_size = 0;
}

inline void zoflvd_sh_store_csd(ZOFLVD_SH* sh, zoflv_block csd, int32_t size)
{
    zoflvd_sh_release_csd(sh);
    sh->csd = csd.release();
    sh->csd_size = size;
}
