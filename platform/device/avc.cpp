// SPDX-License-Identifier: Apache-2.0
#include "bits.h"
#include "config_parsers.h"
#include "fourcc.h"

#include <algorithm>
#include <vector>

namespace zodevice {

namespace {

constexpr uint8_t NAL_SPS = 7;
constexpr int64_t MAX_SIDE = 16384; // pixels
// Profiles whose parameter sets carry the chroma format, bit depths and scaling lists.
constexpr uint32_t CHROMA_PROFILES[] = {100, 110, 122, 244, 44,  83, 86,
                                        118, 128, 138, 139, 134, 135};

/// @return the first 00 00 01 in [from, end), or `end`
const uint8_t* find_start_code(const uint8_t* from, const uint8_t* end)
{
    constexpr uint8_t START[] = {0, 0, 1};
    return std::search(from, end, std::begin(START), std::end(START));
}

/// The payload of a NAL unit without the 03 of each 00 00 03.
std::vector<uint8_t> remove_emulation_prevention(const uint8_t* from, const uint8_t* end)
{
    std::vector<uint8_t> out;
    out.reserve(static_cast<size_t>(end - from));
    int zeros = 0;
    for (; from != end; ++from) {
        if (zeros >= 2 && *from == 3) {
            zeros = 0;
            continue;
        }
        zeros = *from == 0 ? zeros + 1 : 0;
        out.push_back(*from);
    }
    return out;
}

void skip_scaling_list(Bits& bits, int count)
{
    int last = 8;
    int next = 8;
    for (int i = 0; i < count && bits.ok(); ++i) {
        if (next != 0)
            next = static_cast<int>((int64_t{last} + bits.se()) & 0xFF);
        last = next == 0 ? last : next;
    }
}

struct Chroma {
    uint32_t format = 1; // chroma_format_idc
    bool separate_planes = false;
};

/// From chroma_format_idc to the scaling lists.
bool read_chroma(Bits& bits, Chroma* out)
{
    out->format = bits.ue();
    if (out->format > 3)
        return false;
    if (out->format == 3)
        out->separate_planes = bits.flag();
    if (bits.ue() > 6 || bits.ue() > 6) // bit_depth_luma_minus8, bit_depth_chroma_minus8
        return false;
    bits.flag();      // qpprime_y_zero_transform_bypass_flag
    if (!bits.flag()) // seq_scaling_matrix_present_flag
        return true;
    const int lists = out->format == 3 ? 12 : 8;
    for (int i = 0; i < lists; ++i) {
        if (bits.flag())
            skip_scaling_list(bits, i < 6 ? 16 : 64);
    }
    return bits.ok();
}

bool skip_picture_order_count(Bits& bits)
{
    const uint32_t type = bits.ue();
    if (type == 0)
        return bits.ue() <= 12; // log2_max_pic_order_cnt_lsb_minus4
    if (type == 2)
        return true;
    if (type != 1)
        return false;
    bits.flag();                      // delta_pic_order_always_zero_flag
    bits.se();                        // offset_for_non_ref_pic
    bits.se();                        // offset_for_top_to_bottom_field
    const uint32_t cycle = bits.ue(); // num_ref_frames_in_pic_order_cnt_cycle
    if (cycle > 255)
        return false;
    for (uint32_t i = 0; i < cycle; ++i)
        bits.se();
    return bits.ok();
}

/// @param units   macroblock rows or columns, of `unit` pixels
/// @param crop    pixels of one cropping unit
/// @return the length after cropping, or 0 when it is out of range
int32_t cropped(int64_t units, int64_t unit, int64_t crop, uint32_t before, uint32_t after)
{
    // At most 2^32 of each, times small constants: no overflow.
    const int64_t length = units * unit - crop * (int64_t{before} + after);
    return length >= 1 && length <= MAX_SIDE ? static_cast<int32_t>(length) : 0;
}

/// @param bits  from profile_idc on
bool read_sps(Bits bits, PictureSize* out)
{
    const uint32_t profile = bits.u(8);
    bits.u(16);         // constraint flags, level_idc
    if (bits.ue() > 31) // seq_parameter_set_id
        return false;
    Chroma chroma;
    if (is_one_of(profile, CHROMA_PROFILES) && !read_chroma(bits, &chroma))
        return false;
    if (bits.ue() > 12 || !skip_picture_order_count(bits)) // log2_max_frame_num_minus4
        return false;
    bits.ue();   // max_num_ref_frames
    bits.flag(); // gaps_in_frame_num_value_allowed_flag
    const int64_t mb_columns = int64_t{bits.ue()} + 1;
    const int64_t map_rows = int64_t{bits.ue()} + 1;
    const bool frames_only = bits.flag();
    if (!frames_only)
        bits.flag();       // mb_adaptive_frame_field_flag
    bits.flag();           // direct_8x8_inference_flag
    uint32_t crop[4] = {}; // left, right, top, bottom
    if (bits.flag()) {
        for (uint32_t& side : crop)
            side = bits.ue();
    }
    bits.flag(); // vui_parameters_present_flag: must still be there
    if (!bits.ok())
        return false;

    const bool planes_alike = chroma.format == 0 || chroma.separate_planes;
    const int64_t crop_x = planes_alike || chroma.format == 3 ? 1 : 2;
    const int64_t crop_y = planes_alike || chroma.format != 1 ? 1 : 2;
    const int64_t fields = frames_only ? 1 : 2; // map units of a field cover two rows of a frame
    out->width = cropped(mb_columns, 16, crop_x, crop[0], crop[1]);
    out->height = cropped(map_rows, 16 * fields, crop_y * fields, crop[2], crop[3]);
    return out->width != 0 && out->height != 0;
}

} // namespace

int parse_avc(const uint8_t* data, size_t size, PictureSize* out)
{
    const uint8_t* const end = data + size;
    const uint8_t* start = find_start_code(data, end);
    while (end - start > 3) {
        const uint8_t* const nal = start + 3;
        start = find_start_code(nal, end);
        if ((*nal & 0x1F) != NAL_SPS)
            continue;
        if ((*nal & 0x80) != 0) // forbidden_zero_bit
            return BROKEN;
        const std::vector<uint8_t> sps = remove_emulation_prevention(nal + 1, start);
        return read_sps(Bits(sps.data(), sps.size()), out) ? FOUND : BROKEN;
    }
    return MORE_DATA;
}

} // namespace zodevice
