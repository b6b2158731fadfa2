// SPDX-License-Identifier: Apache-2.0
#include "zoflv/dmx/zoflvd_sh.h"

#include "zoflv/dmx/zoflv_err.h"
#include "zoflv/dmx/zoflv_mem.h"
#include "zoflv/dmx/zoflv_num.h"
#include "zoflv/dmx/zoflvd_sh_priv.h"
#include "zoflv/dmx/zoflvd_tag.h"

#include <cstring>
#include <iterator>
#include <utility>

namespace {

// Tags looked at for a stream's first tag, and again for its codec header: enough to pass a long
// run of the other stream, few enough to open a file without such a tag quickly.
constexpr int max_tags = 100;

zoflv_block alloc_body(uint32_t size)
{
    zoflv_block body = zoflv_alloc(size);
    if (!body)
        zoflvd_sh_fail(3002);
    return body;
}

// Reads the tag's body, which the file is at, into `block`, and sets the cursor up over it.
int read_body(ZOFLVD_RDBUF* rb, uint8_t* block, uint32_t size, const _ZOCMN_MFAL* mfal, void* file)
{
    if (zoflvd_rdbuf_init(rb, block, static_cast<int>(size), mfal, file, 1) != ZOFLV_OK)
        return zoflvd_sh_fail(3003);
    return 0;
}

// For codecs without a reader of their own.
int32_t sh_handlr_common(uint32_t, ZOFLVD_SH* sh, ZOFLVD_RDBUF* rb)
{
    return sh_format(sh, rb);
}

// By CodecID; higher ones are skipped.
constexpr uint32_t video_fourcc[] = {
    ZOFLV_FOURCC_UNKNOWN, ZOFLV_FOURCC_JPEG,      ZOFLV_FOURCC_H263,     ZOFLV_FOURCC_SCREEN,
    ZOFLV_FOURCC_VP6,     ZOFLV_FOURCC_VP6_ALPHA, ZOFLV_FOURCC_SCREEN_2, ZOFLV_FOURCC_H264,
};
constexpr ZOFLVD_SH_HANDLER sh_video_handlr[] = {
    sh_handlr_common, sh_handlr_common, sh_video_h263, sh_video_scrn,
    sh_video_vp6,     sh_video_vp6,     sh_video_scrn, sh_video_avc,
};
static_assert(std::size(video_fourcc) == 8, "CodecID 0 to 7");
static_assert(std::size(sh_video_handlr) == std::size(video_fourcc), "one handler per code");

// By SoundFormat.
constexpr uint32_t audio_fourcc[16] = {
    ZOFLV_FOURCC_PCM,
    ZOFLV_FOURCC_ADPCM,
    ZOFLV_FOURCC_MPEG_AUDIO,
    ZOFLV_FOURCC_PCM_LE,
    ZOFLV_FOURCC_NELLY_16K,
    ZOFLV_FOURCC_NELLY_8K,
    ZOFLV_FOURCC_NELLY,
    ZOFLV_FOURCC_ALAW,
    ZOFLV_FOURCC_MULAW,
    0,
    ZOFLV_FOURCC_AAC,
    ZOFLV_FOURCC_SPEEX,
    0,
    0,
    ZOFLV_FOURCC_MPEG_AUDIO, // at 8 kHz
    ZOFLV_FOURCC_DEVICE,
};
// 14 and 15 have none: such a stream fails.
constexpr ZOFLVD_SH_HANDLER sh_audio_handlr[] = {
    sh_handlr_common, sh_handlr_common, sh_audio_mpeg,    sh_handlr_common, sh_handlr_common,
    sh_handlr_common, sh_handlr_common, sh_handlr_common, sh_handlr_common, sh_handlr_common,
    sh_audio_aac,     sh_handlr_common, sh_audio_mpeg,    sh_handlr_common,
};
static_assert(std::size(sh_audio_handlr) == 14, "SoundFormat 0 to 13");

// Hz by SoundRate, whole thousands; readers of a codec's own header replace them.
constexpr int32_t sound_rates[4] = {5000, 11000, 22000, 44000};

int32_t audio_rate(uint32_t fourcc, uint32_t sound_rate)
{
    if (fourcc == ZOFLV_FOURCC_NELLY_16K)
        return 16000;
    if (fourcc == ZOFLV_FOURCC_NELLY_8K)
        return 8000;
    return sound_rates[sound_rate];
}

// The frames begin after this tag: it carries configuration.
void start_after(ZOFLVD_SH* sh, const ZOFLVD_TAG& tag)
{
    const int64_t end = zoflv_add_sat(tag.pos, int64_t{tag.data_size} + ZOFLV_TAG_OVERHEAD);
    sh->first_tag_pos = end;
    sh->data_start = end;
    sh->data_len = zoflv_sub_sat(sh->file_size, end);
}

// One 4:2:0 picture, three halves of the pixels, modulo 2^32 as the pixel product is.
uint32_t picture_product(const ZOFLVD_SH* sh)
{
    return static_cast<uint32_t>(sh->width) * static_cast<uint32_t>(sh->height) * 3;
}

int32_t picture_size(const ZOFLVD_SH* sh)
{
    return static_cast<int32_t>(picture_product(sh)) / 2;
}

// One video tag's header, from its body.
int32_t read_video_header(ZOFLVD_SH* sh, ZOFLVD_RDBUF* rb, int strm_indx)
{
    uint32_t codec = 0;
    if (!zoflvd_rdbuf_get_bits(rb, 4, nullptr) ||
        !zoflvd_rdbuf_get_bits(rb, 4, &codec)) { // FrameType, CodecID
        zoflvd_sh_fail(3501);
        return ZOFLVD_SH_AGAIN;
    }
    sh->strm_indx = strm_indx;
    if (codec >= std::size(sh_video_handlr)) {
        zoflvd_sh_fail(3502);
        return ZOFLVD_SH_AGAIN;
    }
    sh->valid = 1;
    sh->fourcc = video_fourcc[codec];
    sh->max_frm_size = picture_size(sh);
    return sh_video_handlr[codec](codec, sh, rb);
}

// Goes through the stream's tags, from `tag` on, until one yields a codec header.
int search_video_header(ZOFLVD_SH* sh, const _ZOCMN_MFAL* mfal, void* file, int strm_indx,
                        ZOFLVD_TAG tag)
{
    zoflv_block body;
    uint32_t capacity = 0;
    for (int read = 0; read < max_tags; ++read) {
        int64_t after = ZOFLV_PREV_TAG_SIZE;
        if (tag.type != ZOFLV_TAG_VIDEO) {
            after += tag.data_size;
        } else {
            if (tag.data_size >= capacity) {
                body.reset();
                body = alloc_body(tag.data_size);
                capacity = tag.data_size;
            }
            ZOFLVD_RDBUF rb;
            if (!body || read_body(&rb, body.get(), tag.data_size, mfal, file) != 0)
                return -1;
            const int32_t result = read_video_header(sh, &rb, strm_indx);
            if (sh->fourcc == ZOFLV_FOURCC_H264)
                start_after(sh, tag);
            if (result == ZOFLVD_SH_DONE || result == ZOFLVD_SH_STOP)
                return 0;
        }
        if (zoflv_file_skip(mfal, file, after) != 0)
            return zoflvd_sh_fail(3503);
        if (zoflvd_tag_read(mfal, file, &tag) != ZOFLV_OK)
            return 0;
    }
    return 0;
}

int sh_video(ZOFLVD_SH* sh, const _ZOCMN_MFAL* mfal, void* file, const ZOFLVD_SH_FILE* in,
             int strm_indx, const ZOFLVD_TAG& first)
{
    if (search_video_header(sh, mfal, file, strm_indx, first) != 0)
        return -1;
    const ZOFLVD_METADATA& md = *in->metadata;
    sh->frame_rate = zoflv_from_double<int32_t>(md.frame_rate);
    sh->frm_cnt = zoflv_from_double<int32_t>(md.duration * md.frame_rate);
    if (sh->frm_cnt >= 1) {
        const int32_t frame_bytes = zoflv_from_double<int32_t>(md.video_size / sh->frm_cnt);
        sh->byte_rate = zoflv_wrap32(int64_t{frame_bytes} * sh->frame_rate);
    }
    if (sh->width == 0)
        sh->width = static_cast<int32_t>(zoflv_from_double<uint32_t>(md.width));
    if (sh->height == 0)
        sh->height = static_cast<int32_t>(zoflv_from_double<uint32_t>(md.height));
    sh->max_frm_size = picture_size(sh);
    const uint32_t product = picture_product(sh);
    if (product == 0 || product == 1 || product == 0xFFFFFFFF)
        return zoflvd_sh_fail(3504);
    return 0;
}

struct AudioByte {
    uint32_t format; // SoundFormat
    uint32_t rate;   // SoundRate
};

// The FLV audio byte.
int read_audio_byte(ZOFLVD_SH* sh, ZOFLVD_RDBUF* rb, AudioByte* byte)
{
    uint32_t size = 0;
    uint32_t type = 0;
    if (!zoflvd_rdbuf_get_bits(rb, 4, &byte->format) ||
        !zoflvd_rdbuf_get_bits(rb, 2, &byte->rate) || !zoflvd_rdbuf_get_bits(rb, 1, &size) ||
        !zoflvd_rdbuf_get_bits(rb, 1, &type)) { // SoundSize, SoundType
        zoflvd_sh_fail(3601);
        zoflvd_sh_log_error("sh_audio() failed");
        return zoflvd_sh_fail(3602);
    }
    sh->bits_per_sample = 8 + 8 * static_cast<int32_t>(size);
    sh->channels = type == 1 ? 2 : 1;
    return 0;
}

int sh_audio(ZOFLVD_SH* sh, ZOFLVD_RDBUF* rb, int strm_indx, const ZOFLVD_TAG& tag)
{
    AudioByte byte = {};
    if (read_audio_byte(sh, rb, &byte) != 0)
        return -1;
    sh->strm_indx = strm_indx;
    sh->fourcc = audio_fourcc[byte.format];
    sh->sample_rate = audio_rate(sh->fourcc, byte.rate);
    if (byte.format >= std::size(sh_audio_handlr)) {
        zoflvd_sh_fail(3603); // no handler
        return zoflvd_sh_fail(3604);
    }
    if (sh_audio_handlr[byte.format](byte.format, sh, rb) != 0)
        return zoflvd_sh_fail(3605);
    sh->valid = 1;
    sh->byte_rate = sh->bit_rate / 8;
    sh->max_frm_size = sh->bit_rate / 8;
    if (sh->fourcc == ZOFLV_FOURCC_AAC)
        start_after(sh, tag);
    return 0;
}

int fail_stream(ZOFLVD_SH* sh)
{
    zoflvd_sh_log_error("sh_init() failed");
    zoflvd_sh_release_csd(sh);
    return -1;
}

void finish(ZOFLVD_SH* sh, uint32_t* fourcc_out)
{
    sh->fourcc_out = sh->fourcc;
    if (fourcc_out)
        *fourcc_out = sh->fourcc;
}

int init_audio(ZOFLVD_SH* sh, const _ZOCMN_MFAL* mfal, void* file, int strm_indx,
               uint32_t* fourcc_out, const ZOFLVD_TAG& first)
{
    const zoflv_block body = alloc_body(first.data_size);
    if (!body)
        return fail_stream(sh);
    ZOFLVD_RDBUF rb;
    if (read_body(&rb, body.get(), first.data_size, mfal, file) != 0)
        return -1;
    if (sh_audio(sh, &rb, strm_indx, first) != 0)
        return fail_stream(sh);
    finish(sh, fourcc_out);
    return 0;
}

} // namespace

int32_t sh_format(ZOFLVD_SH* sh, const ZOFLVD_RDBUF* rb)
{
    const uint32_t rest = zoflvd_rdbuf_remained(rb);
    if (rest == 0)
        return ZOFLVD_SH_DONE;
    zoflv_block csd = zoflvd_sh_alloc_csd(rest);
    if (!csd) {
        zoflvd_sh_release_csd(sh);
        return -1;
    }
    std::memcpy(csd.get(), zoflvd_rdbuf_cur(rb), rest);
    zoflvd_sh_store_csd(sh, std::move(csd), static_cast<int32_t>(rest));
    return ZOFLVD_SH_DONE;
}

int zoflvd_sh_init(ZOFLVD_SH* sh, const _ZOCMN_MFAL* mfal, void* file, const ZOFLVD_SH_FILE* in,
                   int strm_indx, uint32_t* fourcc_out)
{
    sh->data_start = in->data_start;
    sh->data_len = in->data_len;
    sh->file_size = in->file_size;
    sh->duration = in->duration;

    ZOFLVD_TAG first = {};
    if (zoflvd_tag_next(mfal, file, &in->first_tag_pos, sh->strm_type, max_tags, &in->file_size,
                        &first) != ZOFLV_OK)
        return zoflvd_sh_fail(3004);
    sh->first_tag_pos = first.pos;
    if (sh->strm_type == ZOFLV_TAG_AUDIO)
        return init_audio(sh, mfal, file, strm_indx, fourcc_out, first);
    if (sh->strm_type != ZOFLV_TAG_VIDEO)
        return 0;
    if (sh_video(sh, mfal, file, in, strm_indx, first) != 0)
        return fail_stream(sh);
    finish(sh, fourcc_out);
    return 0;
}

void zoflvd_sh_upd(ZOFLVD_SH* sh, int32_t frm_size)
{
    if (sh->strm_type != ZOFLV_TAG_AUDIO && sh->strm_type != ZOFLV_TAG_VIDEO)
        return;
    if (sh->max_frm_size < frm_size)
        sh->max_frm_size = frm_size;
}
