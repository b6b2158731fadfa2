// SPDX-License-Identifier: Apache-2.0
#include "zoflv/dmx/zoflvd_sh_priv.h"

#include "zoflv/dmx/zoflv_err.h"

// MPEG audio (ISO/IEC 11172-3, ISO/IEC 13818-3) and AAC (ISO/IEC 14496-3).

namespace {

// kbit/s by bitrate_index for MPEG-1 and MPEG-2, whose rates MPEG-2.5 shares, and layers I to III.
// 0: free format, 15: forbidden.
constexpr int16_t mpeg_kbps[2][3][16] = {
    {
        {0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448, 0},
        {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384, 0},
        {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 0},
    },
    {
        {0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256, 0},
        {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160, 0},
        {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160, 0},
    },
};

// Hz by version bits (0 MPEG-2.5, 1 reserved, 2 MPEG-2, 3 MPEG-1) and sampling_frequency.
constexpr int32_t mpeg_rates[4][3] = {
    {11025, 12000, 8000},
    {0, 0, 0},
    {22050, 24000, 16000},
    {44100, 48000, 32000},
};

// By mode: stereo, joint stereo, dual channel, single channel.
constexpr int32_t mpeg_channels[4] = {2, 2, 2, 1};

// Hz by samplingFrequencyIndex; 13 and 14 are reserved, 15 is the escape.
constexpr int32_t aac_rates[15] = {
    96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050, 16000, 12000, 11025, 8000, 7350, 0, 0,
};

// By channelConfiguration; reserved ones give 1.
constexpr int32_t aac_channels[16] = {0, 1, 2, 3, 4, 5, 6, 8, 1, 1, 1, 1, 1, 1, 1, 1};

// Puts the read position on the first frame sync: 11 set bits.
int find_mpeg_sync(ZOFLVD_RDBUF* rb)
{
    uint8_t previous = 0;
    uint8_t byte = 0;
    do {
        previous = byte;
        if (zoflvd_rdbuf_byte(rb, &byte) != ZOFLV_OK)
            return zoflvd_sh_fail(3301);
    } while (previous != 0xFF || byte < 0xE0);
    if (zoflvd_rdbuf_rewind(rb, 2) != ZOFLV_OK)
        return zoflvd_sh_fail(3302);
    return 0;
}

} // namespace

int32_t sh_audio_mpeg(uint32_t, ZOFLVD_SH* sh, ZOFLVD_RDBUF* rb)
{
    constexpr uint32_t version_reserved = 1;
    constexpr uint32_t version_mpeg1 = 3;
    constexpr uint32_t layer_reserved = 0;
    constexpr uint32_t rate_reserved = 3;

    if (find_mpeg_sync(rb) != 0)
        return -1;
    if (sh_format(sh, rb) != 0)
        return zoflvd_sh_fail(3303);
    uint32_t syncword = 0;
    if (!zoflvd_rdbuf_get_bits(rb, 11, &syncword))
        return zoflvd_sh_fail(3304);
    if (syncword != 0x7FF)
        return -1;
    uint32_t version = 0;
    if (!zoflvd_rdbuf_get_bits(rb, 2, &version) || version == version_reserved)
        return zoflvd_sh_fail(3305);
    uint32_t layer_bits = 0; // 3 layer I, 2 layer II, 1 layer III
    if (!zoflvd_rdbuf_get_bits(rb, 2, &layer_bits) || layer_bits == layer_reserved)
        return zoflvd_sh_fail(3306);
    uint32_t bitrate_index = 0;
    if (!zoflvd_rdbuf_get_bits(rb, 1, nullptr) ||
        !zoflvd_rdbuf_get_bits(rb, 4, &bitrate_index)) // protection_bit
        return zoflvd_sh_fail(3307);
    sh->bit_rate =
        mpeg_kbps[version == version_mpeg1 ? 0 : 1][3 - layer_bits][bitrate_index] * 1000;
    uint32_t sampling_frequency = 0;
    if (!zoflvd_rdbuf_get_bits(rb, 2, &sampling_frequency) || sampling_frequency == rate_reserved)
        return zoflvd_sh_fail(3308);
    sh->sample_rate = mpeg_rates[version][sampling_frequency];
    uint32_t mode = 0;
    if (!zoflvd_rdbuf_get_bits(rb, 2, nullptr) ||
        !zoflvd_rdbuf_get_bits(rb, 2, &mode)) // padding_bit, private_bit
        return zoflvd_sh_fail(3309);
    sh->channels = mpeg_channels[mode];
    return ZOFLVD_SH_DONE;
}

int32_t sh_audio_aac(uint32_t, ZOFLVD_SH* sh, ZOFLVD_RDBUF* rb)
{
    constexpr uint32_t type_escape = 31;
    constexpr uint32_t rate_escape = 15;

    uint8_t packet_type = 0;
    if (zoflvd_rdbuf_byte(rb, &packet_type) != ZOFLV_OK)
        return zoflvd_sh_fail(3401);
    if (packet_type == 1) // a raw frame: what the FLV audio byte told stays
        return ZOFLVD_SH_DONE;
    if (packet_type != 0)
        return zoflvd_sh_fail(3402);
    zoflvd_sh_release_csd(sh);
    uint32_t object_type = 0;
    if (!zoflvd_rdbuf_get_bits(rb, 5, &object_type) ||
        (object_type == type_escape &&
         !zoflvd_rdbuf_get_bits(rb, 6, nullptr))) // audioObjectTypeExt
        return zoflvd_sh_fail(3403);
    uint32_t index = 0;
    if (!zoflvd_rdbuf_get_bits(rb, 4, &index))
        return zoflvd_sh_fail(3404);
    uint32_t rate = 0;
    if (index != rate_escape)
        sh->sample_rate = aac_rates[index];
    else if (zoflvd_rdbuf_get_bits(rb, 24, &rate))
        sh->sample_rate = static_cast<int32_t>(rate);
    else
        return zoflvd_sh_fail(3405);
    uint32_t configuration = 0;
    if (!zoflvd_rdbuf_get_bits(rb, 4, &configuration))
        return zoflvd_sh_fail(3406);
    sh->channels = aac_channels[configuration];
    return ZOFLVD_SH_DONE;
}
