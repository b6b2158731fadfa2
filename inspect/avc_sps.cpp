// SPDX-License-Identifier: Apache-2.0
#include "inspect/avc_sps.h"

#include <algorithm>
#include <iterator>

// ISO/IEC 14496-10, 7.3.2.1.1.

namespace zoflv_inspect {

namespace {

constexpr uint8_t NAL_SPS = 7;
// Profiles whose parameter sets have the chroma fields.
constexpr uint32_t CHROMA_PROFILES[] = {44,  83,  86,  100, 110, 118, 122,
                                        128, 134, 135, 138, 139, 144, 244};

/// Bits of a NAL unit, emulation prevention left out. After the end it gives zeros and has failed.
class UnitBits {
public:
    explicit UnitBits(const View& unit) : m_unit(unit) {}

    uint32_t bit()
    {
        if (m_left == 0 && !next_byte()) {
            m_failed = true;
            return 0;
        }
        return m_byte >> --m_left & 1U;
    }
    uint32_t bits(int count)
    {
        uint32_t value = 0;
        for (int i = 0; i < count; ++i)
            value = value << 1 | bit();
        return value;
    }
    /// An Exp-Golomb code. One of more than 32 bits is a failure.
    uint32_t ue()
    {
        int zeros = 0;
        while (!m_failed && bit() == 0)
            ++zeros;
        if (zeros > 31)
            m_failed = true;
        return m_failed ? 0 : (1U << zeros) - 1 + bits(zeros);
    }
    int64_t se()
    {
        const int64_t code = ue();
        return code % 2 == 1 ? (code + 1) / 2 : -code / 2;
    }
    bool failed() const { return m_failed; }

private:
    bool next_byte()
    {
        if (m_at < m_unit.size && m_zeros >= 2 && m_unit.data[m_at] == 3) {
            ++m_at; // emulation_prevention_three_byte
            m_zeros = 0;
        }
        if (m_at >= m_unit.size)
            return false;
        m_byte = m_unit.data[m_at++];
        m_zeros = m_byte == 0 ? m_zeros + 1 : 0;
        m_left = 8;
        return true;
    }

    const View m_unit;
    size_t m_at = 0;
    size_t m_zeros = 0; ///< bytes of 0 before
    uint32_t m_byte = 0;
    int m_left = 0; ///< bits of it
    bool m_failed = false;
};

void skip_scaling_list(UnitBits* unit, int entries)
{
    int64_t last = 8;
    int64_t next = 8;
    for (int i = 0; i < entries && next != 0; ++i) {
        next = (last + unit->se() + 256) % 256;
        last = next == 0 ? last : next;
    }
}

/// Returns ChromaArrayType: chroma_format_idc, 0 where colour planes are apart.
uint32_t read_chroma_fields(UnitBits* unit)
{
    const uint32_t format = unit->ue();
    const bool apart = format == 3 && unit->bit() != 0; // separate_colour_plane_flag
    unit->ue();                                         // bit_depth_luma_minus8
    unit->ue();                                         // bit_depth_chroma_minus8
    unit->bit();                                        // qpprime_y_zero_transform_bypass_flag
    const int lists = unit->bit() == 0 ? 0
                      : format == 3    ? 12
                                       : 8; // seq_scaling_matrix_present_flag
    for (int i = 0; i < lists; ++i) {
        if (unit->bit() != 0)
            skip_scaling_list(unit, i < 6 ? 16 : 64);
    }
    return apart ? 0 : format;
}

void skip_picture_order(UnitBits* unit)
{
    const uint32_t type = unit->ue();
    if (type == 0)
        unit->ue(); // log2_max_pic_order_cnt_lsb_minus4
    if (type != 1)
        return;
    unit->bit(); // delta_pic_order_always_zero_flag
    unit->ue();  // offset_for_non_ref_pic
    unit->ue();  // offset_for_top_to_bottom_field
    for (uint32_t i = unit->ue(); i > 0 && !unit->failed(); --i)
        unit->ue(); // offset_for_ref_frame
}

} // namespace

std::optional<AvcSize> read_avc_size(const View& sps)
{
    UnitBits unit(sps);
    if ((unit.bits(8) & 0x1F) != NAL_SPS)
        return std::nullopt;
    const uint32_t profile = unit.bits(8);
    unit.bits(16); // constraint flags, level_idc
    unit.ue();     // seq_parameter_set_id
    uint32_t chroma = 1;
    if (std::find(std::begin(CHROMA_PROFILES), std::end(CHROMA_PROFILES), profile) !=
        std::end(CHROMA_PROFILES))
        chroma = read_chroma_fields(&unit);
    unit.ue(); // log2_max_frame_num_minus4
    skip_picture_order(&unit);
    unit.ue();  // max_num_ref_frames
    unit.bit(); // gaps_in_frame_num_value_allowed_flag
    const int64_t columns = int64_t{unit.ue()} + 1;
    const int64_t rows = int64_t{unit.ue()} + 1;
    const int64_t fields = unit.bit() == 0 ? 2 : 1; // frame_mbs_only_flag
    if (fields == 2)
        unit.bit(); // mb_adaptive_frame_field_flag
    unit.bit();     // direct_8x8_inference_flag
    AvcSize size = {columns * 16, rows * 16 * fields};
    if (unit.bit() != 0) { // frame_cropping_flag
        const int64_t unit_x = chroma == 1 || chroma == 2 ? 2 : 1;
        const int64_t unit_y = (chroma == 1 ? 2 : 1) * fields;
        const int64_t left = unit.ue(), right = unit.ue(), top = unit.ue(), bottom = unit.ue();
        size.width -= (left + right) * unit_x;
        size.height -= (top + bottom) * unit_y;
    }
    if (unit.failed() || chroma > 3 || size.width < 1 || size.height < 1)
        return std::nullopt;
    return size;
}

} // namespace zoflv_inspect
