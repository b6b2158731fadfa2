// SPDX-License-Identifier: Apache-2.0
#include "zoflv/dmx/zoflvd_kf.h"

#include "zoflv/dmx/zoflv_num.h"
#include "zoflv/dmx/zoflv_types.h"
#include "zoflv/dmx/zoflvd_log.h"

#include <cstddef>
#include <cstring>

namespace {

ZOFLVD_KF entry_of(const void* entry)
{
    ZOFLVD_KF kf;
    std::memcpy(&kf, entry, sizeof kf); // blocks of a 32-bit host align elements to 4 bytes only
    return kf;
}

// Tells whether a tag is at the first keyframe's offset, or at least its type. 0, or a code to
// end the open with; `*usable` 0: no index.
int check_first_position(const _ZOCMN_MFAL* mfal, void* fh, double first, bool* usable)
{
    *usable = false;
    int64_t back = 0;
    if (zoflv_file_getpos(mfal, fh, &back) != 0) {
        zoflvd_fail(3001);
        return ZOFLV_OK;
    }
    const int64_t pos = zoflv_from_double<int64_t>(first);
    if (pos < 0) {
        zoflvd_log_error("1st position of idx talbe is invalid");
        return ZOFLV_OK;
    }
    if (zoflv_file_setpos(mfal, fh, pos) != 0) {
        zoflvd_fail(3002);
        return ZOFLV_OK;
    }
    uint8_t type = 0;
    if (!zoflv_file_read(mfal, fh, &type, 1))
        return zoflvd_fail(3003, ZOFLV_ERR_FILEIO);
    zoflv_file_setpos(mfal, fh, back); // the open positions the file once more
    if (type != ZOFLV_TAG_AUDIO && type != ZOFLV_TAG_VIDEO && type != ZOFLV_TAG_SCRIPT) {
        zoflvd_log_warning("zoflv first tag_header type is invalid");
        return ZOFLV_OK;
    }
    *usable = true;
    return ZOFLV_OK;
}

int fill_index(const ZOFLVD_METADATA& md, int32_t count, ZOFLVD_MBLK* idx)
{
    zoflvd_mblk_ctor(idx, sizeof(ZOFLVD_KF));
    for (int32_t i = 0; i < count; ++i) {
        const ZOFLVD_KF kf = {
            zoflv_from_double<int64_t>(md.times[i] * ZOFLV_TICKS_PER_SECOND),
            zoflv_from_double<int64_t>(md.filepositions[i]),
        };
        const int rc = zoflvd_mblk_elem_add(idx, &kf);
        if (rc != ZOFLV_OK) {
            zoflvd_log_warning("zoflvd_mblk_elem_add() failed");
            return rc;
        }
    }
    const int rc = zoflvd_mblk_upd_meta(idx, zoflvd_kf_time);
    if (rc != ZOFLV_OK)
        zoflvd_log_warning("zoflvd_mblk_upd_meta() failed");
    return rc;
}

} // namespace

int zoflvd_kf_build(const ZOFLVD_METADATA* md, const _ZOCMN_MFAL* mfal, void* fh, ZOFLVD_MBLK* idx)
{
    if (!md->filepositions || !md->times)
        return ZOFLV_OK;
    const int32_t count =
        md->filepositions_cnt < md->times_cnt ? md->filepositions_cnt : md->times_cnt;
    if (count == 0) {
        zoflvd_mblk_ctor(idx, sizeof(ZOFLVD_KF));
        return ZOFLV_OK;
    }
    bool usable = false;
    int rc = check_first_position(mfal, fh, md->filepositions[0], &usable);
    if (rc != ZOFLV_OK)
        return rc;
    if (usable)
        rc = fill_index(*md, count, idx);
    if (!usable || rc != ZOFLV_OK) {
        zoflvd_log_error("zoflvd_kf_build_metadata() failed");
        zoflvd_mblk_dtor(idx);
    }
    return rc;
}

int zoflvd_kf_compare(const void* key, const void* entry, const void* node)
{
    int64_t time = 0;
    std::memcpy(&time, key, sizeof time);
    const int64_t entry_time = zoflvd_kf_time(entry);
    if (time < entry_time)
        return -1;
    if (time == entry_time)
        return 0;
    const uint8_t* next = static_cast<const uint8_t*>(entry) + sizeof(ZOFLVD_KF);
    const auto* block = static_cast<const ZOFLVD_MBLK_NODE*>(node);
    if (next == zoflvd_mblk_data_end(block, sizeof(ZOFLVD_KF)))
        return 0;
    return zoflvd_kf_time(next) < time ? 1 : 0;
}

int64_t zoflvd_kf_time(const void* entry)
{
    return entry_of(entry).time;
}

int zoflvd_kf_choose(const ZOFLVD_MBLK* idx, int64_t time, int mode, ZOFLVD_KF* chosen, bool* later)
{
    ZOFLVD_MBLK_POS pos = {};
    const void* entry = zoflvd_mblk_elem_find(idx, &time, zoflvd_kf_compare, &pos);
    if (!entry)
        return zoflvd_log_error("zoflvd_mblk_elem_find() failed", ZOFLV_ERR_FORMAT);
    *chosen = entry_of(entry);
    *later = false;
    if (mode != ZOFLV_SEEK_NEXT && mode != ZOFLV_SEEK_CLOSEST)
        return ZOFLV_OK;
    const void* next = zoflvd_mblk_elem_next(idx, &pos);
    if (!next)
        return mode == ZOFLV_SEEK_NEXT ? ZOFLV_EOF : ZOFLV_OK;
    *later = mode == ZOFLV_SEEK_NEXT ||
             zoflv_sub_sat(zoflvd_kf_time(next), time) < zoflv_sub_sat(time, chosen->time);
    if (*later)
        *chosen = entry_of(next);
    return ZOFLV_OK;
}

uint32_t zoflvd_kf_table(const ZOFLVD_MBLK* idx, uint8_t* out)
{
    constexpr uint32_t zero = 0;

    uint32_t written = 0;
    ZOFLVD_MBLK_POS pos = {};
    const void* entry = zoflvd_mblk_elem_first(idx, &pos);
    for (; entry; entry = zoflvd_mblk_elem_next(idx, &pos)) {
        const int64_t time = zoflvd_kf_time(entry);
        std::memcpy(out, &zero, sizeof zero);
        std::memcpy(out + offsetof(ZOFLVD_IDX_ENTRY, time), &time, sizeof time);
        out += sizeof(ZOFLVD_IDX_ENTRY);
        ++written;
    }
    return written;
}
