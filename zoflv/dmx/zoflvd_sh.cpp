// SPDX-License-Identifier: Apache-2.0
#include "zoflv/dmx/zoflvd_sh.h"

#include "zoflv/dmx/zoflv_err.h"
#include "zoflv/dmx/zoflv_mem.h"
#include "zoflv/dmx/zoflv_num.h"
#include "zoflv/dmx/zoflvd_bs.h"
#include "zoflv/dmx/zoflvd_h263.h"
#include "zoflv/dmx/zoflvd_sh_priv.h"
#include "zoflv/dmx/zoflvd_tag.h"

#include <cstdlib>
#include <cstring>
#include <iterator>
#include <utility>

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

// ---- Codecs without a reader of their own

int32_t sh_handlr_common(uint32_t, ZOFLVD_SH* sh, ZOFLVD_RDBUF* rb)
{
    return sh_format(sh, rb);
}

// ---- AVC: ISO/IEC 14496-15 configuration records, ISO/IEC 14496-10 parameter sets

constexpr uint8_t start_code[4] = {0, 0, 0, 1};

// CropUnitX and CropUnitY of ISO/IEC 14496-10, 7.4.2.1.1, by chroma_format_idc, for frames.
constexpr int crop_unit_x[4] = {1, 2, 2, 1};
constexpr int crop_unit_y[4] = {1, 2, 1, 1};

// Passes over scaling_list() of `entries` entries; the values are not kept.
void skip_scaling_list(ZOFLVD_BS* bs, int entries)
{
    int64_t last = 8;
    int64_t next = 8;
    for (int i = 0; i < entries && next != 0; ++i) {
        next = (last + zoflvd_bs_read_se(bs) + 256) % 256;
        if (next != 0)
            last = next;
    }
}

// The chroma fields that only some profiles carry. Returns chroma_format_idc.
uint32_t read_chroma_fields(ZOFLVD_BS* bs)
{
    const uint32_t chroma_format_idc = zoflvd_bs_read_ue(bs);
    if (chroma_format_idc == 3)
        zoflvd_bs_skip(bs, 1); // separate_colour_plane_flag
    zoflvd_bs_read_ue(bs);     // bit_depth_luma_minus8
    zoflvd_bs_read_ue(bs);     // bit_depth_chroma_minus8
    zoflvd_bs_skip(bs, 1);     // qpprime_y_zero_transform_bypass_flag
    if (zoflvd_bs_read1(bs)) { // seq_scaling_matrix_present_flag
        for (int list = 0; list < 8; ++list) {
            if (zoflvd_bs_read1(bs)) // seq_scaling_list_present_flag
                skip_scaling_list(bs, list < 6 ? 16 : 64);
        }
    }
    return chroma_format_idc;
}

int skip_pic_order_cnt(ZOFLVD_BS* bs)
{
    // ISO/IEC 14496-10 bounds the cycle; a larger count would read that many codes past the end.
    constexpr int32_t max_cycle = 255;

    const uint32_t pic_order_cnt_type = zoflvd_bs_read_ue(bs);
    if (pic_order_cnt_type == 0)
        zoflvd_bs_read_ue(bs); // log2_max_pic_order_cnt_lsb_minus4
    if (pic_order_cnt_type != 1)
        return 0;
    zoflvd_bs_skip(bs, 1); // delta_pic_order_always_zero_flag
    zoflvd_bs_read_se(bs); // offset_for_non_ref_pic
    zoflvd_bs_read_se(bs); // offset_for_top_to_bottom_field
    const int32_t cycle = static_cast<int32_t>(zoflvd_bs_read_ue(bs));
    if (cycle > max_cycle)
        return zoflvd_sh_fail(3111);
    for (int32_t i = 0; i < cycle; ++i)
        zoflvd_bs_read_se(bs); // offset_for_ref_frame
    return 0;
}

// Takes the picture size from a sequence parameter set as stored, emulation prevention included.
// The single reads are not tested: only the values below decide.
int parse_sps(ZOFLVD_SH* sh, uint8_t* sps, int size)
{
    ZOFLVD_BS bs;
    zoflvd_bs_init(&bs, sps, size, 0);
    if (zoflvd_bs_read(&bs, 8) != 0x67) { // nal_ref_idc 3, nal_unit_type 7
        zoflvd_sh_log_error("h264 header parsing fail: first byte of sps packet should be 0x67!");
        return -1;
    }
    const uint32_t profile_idc = zoflvd_bs_read(&bs, 8);
    zoflvd_bs_skip(&bs, 16); // constraint flags, level_idc
    zoflvd_bs_read_ue(&bs);  // seq_parameter_set_id
    uint32_t chroma_format_idc = 1;
    if (profile_idc == 100 || profile_idc == 110 || profile_idc == 122 || profile_idc == 144)
        chroma_format_idc = read_chroma_fields(&bs);
    zoflvd_bs_read_ue(&bs); // log2_max_frame_num_minus4
    if (skip_pic_order_cnt(&bs) != 0)
        return -1;
    zoflvd_bs_read_ue(&bs); // max_num_ref_frames
    zoflvd_bs_skip(&bs, 1); // gaps_in_frame_num_value_allowed_flag
    const int64_t width_mbs = int64_t{zoflvd_bs_read_ue(&bs)} + 1;
    const int64_t height_units = int64_t{zoflvd_bs_read_ue(&bs)} + 1;
    const int64_t fields = 2 - int64_t{zoflvd_bs_read1(&bs)}; // frame_mbs_only_flag
    if (fields == 2)
        zoflvd_bs_read1_skip(&bs); // mb_adaptive_frame_field_flag
    zoflvd_bs_read1_skip(&bs);     // direct_8x8_inference_flag

    int64_t crop_x = 0;
    int64_t crop_y = 0;
    if (zoflvd_bs_read1(&bs)) { // frame_cropping_flag
        if (chroma_format_idc > 3)
            return zoflvd_sh_fail(3112);
        const int64_t left = zoflvd_bs_read_ue(&bs);
        const int64_t right = zoflvd_bs_read_ue(&bs);
        const int64_t top = zoflvd_bs_read_ue(&bs);
        const int64_t bottom = zoflvd_bs_read_ue(&bs);
        crop_x = (left + right) * crop_unit_x[chroma_format_idc];
        crop_y = (top + bottom) * crop_unit_y[chroma_format_idc] * fields;
    }
    const int64_t width = width_mbs * 16 - crop_x;
    const int64_t height = fields * height_units * 16 - crop_y;
    if (width < 1 || height < 1 || width > INT32_MAX || height > INT32_MAX)
        return zoflvd_sh_fail(3113);
    sh->width = static_cast<int32_t>(width);
    sh->height = static_cast<int32_t>(height);
    return 0;
}

// Where parameter sets go and how much there is of them.
struct ParameterSets {
    uint8_t* out;         // next byte to write, or null
    int32_t csd_size;     // bytes of output: start codes and sets
    int32_t record_bytes; // bytes of the record: lengths and sets
};

// Copies one parameter set behind a start code; `*set` becomes its address in the output, or null.
int copy_parameter_set(ZOFLVD_RDBUF* rb, ParameterSets* sets, uint8_t** set, int* size)
{
    uint16_t raw = 0;
    if (zoflvd_rdbuf_int16(rb, &raw) != ZOFLV_OK) // parameterSetLength
        return zoflvd_sh_fail(3104);
    const int length = static_cast<int16_t>(raw);
    if (length < 0)
        return zoflvd_sh_fail(3105);
    if (sets->out) {
        std::memcpy(sets->out, start_code, sizeof start_code);
        sets->out += sizeof start_code;
    }
    if (zoflvd_rdbuf_read(rb, sets->out, length) != ZOFLV_OK)
        return zoflvd_sh_fail(3106);
    *set = sets->out;
    *size = length;
    if (sets->out)
        sets->out += length;
    sets->csd_size += static_cast<int32_t>(sizeof start_code) + length;
    sets->record_bytes += 2 + length;
    return 0;
}

int copy_sps_list(ZOFLVD_SH* sh, ZOFLVD_RDBUF* rb, int count, ParameterSets* sets)
{
    for (int i = 0; i < count; ++i) {
        uint8_t* sps = nullptr;
        int size = 0;
        if (copy_parameter_set(rb, sets, &sps, &size) != 0)
            return -1;
        if (i == 0 && sps && parse_sps(sh, sps, size) != 0)
            return zoflvd_sh_fail(3107);
    }
    return 0;
}

int copy_pps_list(ZOFLVD_RDBUF* rb, int count, ParameterSets* sets)
{
    for (int i = 0; i < count; ++i) {
        uint8_t* pps = nullptr;
        int size = 0;
        if (copy_parameter_set(rb, sets, &pps, &size) != 0)
            return -1;
    }
    return 0;
}

} // namespace

int sh_video_avc_dec_cfg(ZOFLVD_SH* sh, ZOFLVD_RDBUF* rb, uint8_t* out, int32_t* csd_size,
                         int32_t* body_len, int32_t* rec_len)
{
    constexpr int32_t head_size = 5;

    // configurationVersion, AVCProfileIndication, profile_compatibility, AVCLevelIndication,
    // lengthSizeMinusOne
    uint8_t head[head_size];
    if (zoflvd_rdbuf_read(rb, head, head_size) != ZOFLV_OK)
        return zoflvd_sh_fail(3101);
    sh->h264_frm_len_size = (head[4] & 3) + 1;

    ParameterSets sets = {out, 0, 2}; // the two count bytes
    uint8_t count = 0;
    if (zoflvd_rdbuf_byte(rb, &count) != ZOFLV_OK) // numOfSequenceParameterSets, 5 bits
        return zoflvd_sh_fail(3102);
    if (copy_sps_list(sh, rb, count & 31, &sets) != 0)
        return -1;
    if (zoflvd_rdbuf_byte(rb, &count) != ZOFLV_OK) // numOfPictureParameterSets
        return zoflvd_sh_fail(3103);
    if (copy_pps_list(rb, count, &sets) != 0)
        return -1;

    if (csd_size)
        *csd_size = sets.csd_size;
    if (body_len)
        *body_len = sets.record_bytes;
    if (rec_len)
        *rec_len = sets.record_bytes + head_size;
    return 0;
}

int32_t sh_video_avc(uint32_t, ZOFLVD_SH* sh, ZOFLVD_RDBUF* rb)
{
    uint8_t packet_type = 0;
    uint32_t composition_time = 0; // not used
    if (zoflvd_rdbuf_byte(rb, &packet_type) != ZOFLV_OK ||
        zoflvd_rdbuf_int24(rb, &composition_time) != ZOFLV_OK) {
        zoflvd_sh_fail(3108);
        return ZOFLVD_SH_STOP;
    }
    if (packet_type == 1) // NAL units: the configuration may come in a later tag
        return ZOFLVD_SH_AGAIN;
    if (packet_type != 0)
        return ZOFLVD_SH_STOP;

    int32_t size = 0;
    int32_t rec_len = 0;
    if (sh_video_avc_dec_cfg(sh, rb, nullptr, &size, nullptr, &rec_len) != 0) {
        zoflvd_sh_fail(3109);
        return ZOFLVD_SH_STOP;
    }
    if (size < 1)
        return ZOFLVD_SH_DONE;
    zoflv_block csd = zoflvd_sh_alloc_csd(static_cast<uint32_t>(size));
    if (!csd)
        return ZOFLVD_SH_STOP;
    if (zoflvd_rdbuf_rewind(rb, rec_len) != ZOFLV_OK ||
        sh_video_avc_dec_cfg(sh, rb, csd.get(), &size, nullptr, &rec_len) != 0) {
        zoflvd_sh_fail(3110);
        return ZOFLVD_SH_STOP;
    }
    zoflvd_sh_store_csd(sh, std::move(csd), size);
    return ZOFLVD_SH_DONE;
}

// ---- H.263, screen video, VP6: the picture size stands in each frame

namespace {

int32_t store_size(ZOFLVD_SH* sh, int32_t width, int32_t height)
{
    if (width < 1 || height < 1)
        return zoflvd_sh_fail(3201);
    sh->width = width;
    sh->height = height;
    return ZOFLVD_SH_DONE;
}

} // namespace

int32_t sh_video_h263(uint32_t, ZOFLVD_SH* sh, ZOFLVD_RDBUF* rb)
{
    ZOFLVD_H263_HDR hdr = {};
    if (zoflvd_h263_read(rb, &hdr) != ZOFLV_OK)
        return zoflvd_sh_fail(3202);
    // 0 x 0 is possible: the metadata's size is then taken.
    sh->width = static_cast<int32_t>(hdr.width);
    sh->height = static_cast<int32_t>(hdr.height);
    return ZOFLVD_SH_DONE;
}

int32_t sh_video_scrn(uint32_t codec, ZOFLVD_SH* sh, ZOFLVD_RDBUF* rb)
{
    constexpr uint32_t screen_video_2 = 6;

    uint32_t block_width = 0;
    uint32_t image_width = 0;
    uint32_t block_height = 0;
    uint32_t image_height = 0;
    if ((codec == screen_video_2 && zoflvd_rdbuf_byte(rb, nullptr) != ZOFLV_OK) ||
        !zoflvd_rdbuf_get_bits(rb, 4, &block_width) ||
        !zoflvd_rdbuf_get_bits(rb, 12, &image_width) ||
        !zoflvd_rdbuf_get_bits(rb, 4, &block_height) ||
        !zoflvd_rdbuf_get_bits(rb, 12, &image_height))
        return zoflvd_sh_fail(3203);
    // The image and one block, whose size is 16 x (code + 1) pixels.
    return store_size(sh, static_cast<int32_t>(image_width + 16 * block_width + 16),
                      static_cast<int32_t>(image_height + 16 * block_height + 16));
}

int32_t sh_video_vp6(uint32_t codec, ZOFLVD_SH* sh, ZOFLVD_RDBUF* rb)
{
    constexpr uint32_t vp6_with_alpha = 5;

    uint32_t adjust_x = 0;
    uint32_t adjust_y = 0;
    uint32_t inter = 0;
    uint32_t marker = 0;
    if (!zoflvd_rdbuf_get_bits(rb, 4, &adjust_x) || !zoflvd_rdbuf_get_bits(rb, 4, &adjust_y) ||
        (codec == vp6_with_alpha &&
         !zoflvd_rdbuf_get_bits(rb, 24, nullptr)) || // offset of the alpha data
        !zoflvd_rdbuf_get_bits(rb, 1, &inter) ||
        !zoflvd_rdbuf_get_bits(rb, 6, nullptr) || // quantizer
        !zoflvd_rdbuf_get_bits(rb, 1, &marker))
        return zoflvd_sh_fail(3204);
    if (inter) {
        zoflvd_sh_log_error("zoflvd vp6: not an I-Frame, can't get width and height!");
        return ZOFLVD_SH_AGAIN;
    }
    uint32_t profile = 0;
    if (!zoflvd_rdbuf_get_bits(rb, 5, nullptr) ||
        !zoflvd_rdbuf_get_bits(rb, 2, &profile) || // version
        !zoflvd_rdbuf_get_bits(rb, 1, nullptr))    // interlaced
        return zoflvd_sh_fail(3205);
    if ((marker == 1 || profile == 0) &&
        !zoflvd_rdbuf_get_bits(rb, 16, nullptr)) // second partition's offset
        return zoflvd_sh_fail(3206);
    uint8_t displayed_rows = 0; // of macroblocks; the encoded rows and columns come first
    uint8_t displayed_columns = 0;
    if (zoflvd_rdbuf_byte(rb, nullptr) != ZOFLV_OK || zoflvd_rdbuf_byte(rb, nullptr) != ZOFLV_OK ||
        zoflvd_rdbuf_byte(rb, &displayed_rows) != ZOFLV_OK ||
        zoflvd_rdbuf_byte(rb, &displayed_columns) != ZOFLV_OK)
        return zoflvd_sh_fail(3207);
    return store_size(sh, displayed_columns * 16 - static_cast<int32_t>(adjust_x),
                      displayed_rows * 16 - static_cast<int32_t>(adjust_y));
}

// ---- MPEG audio (ISO/IEC 11172-3, ISO/IEC 13818-3) and AAC (ISO/IEC 14496-3)

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

// ---- Dispatch by codec number

namespace {

// By CodecID; higher ones are passed over.
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

// The frames begin behind this tag: it carries configuration.
void start_behind(ZOFLVD_SH* sh, const ZOFLVD_TAG& tag)
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
        int64_t behind = ZOFLV_PREV_TAG_SIZE;
        if (tag.type != ZOFLV_TAG_VIDEO) {
            behind += tag.data_size;
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
                start_behind(sh, tag);
            if (result == ZOFLVD_SH_DONE || result == ZOFLVD_SH_STOP)
                return 0;
        }
        if (zoflv_file_skip(mfal, file, behind) != 0)
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
        start_behind(sh, tag);
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
