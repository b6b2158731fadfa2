// SPDX-License-Identifier: Apache-2.0
#include "zoflv/dmx/zoflvd_avc.h"

#include "zoflv/dmx/zoflv_err.h"
#include "zoflv/dmx/zoflvd_bs.h"
#include "zoflv/dmx/zoflvd_sh_priv.h"

#include <cstring>
#include <utility>

// ISO/IEC 14496-15 configuration records, ISO/IEC 14496-10 parameter sets.

namespace {

constexpr uint8_t start_code[4] = {0, 0, 0, 1};

// CropUnitX and CropUnitY of ISO/IEC 14496-10, 7.4.2.1.1, by chroma_format_idc, for frames.
constexpr int crop_unit_x[4] = {1, 2, 2, 1};
constexpr int crop_unit_y[4] = {1, 2, 1, 1};

// Skips scaling_list() of `entries` entries; the values are not kept.
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

// Copies one parameter set after a start code; `*set` becomes its address in the output, or null.
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
