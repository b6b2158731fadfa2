// SPDX-License-Identifier: Apache-2.0
#include "zoflv/dmx/zoflvd.h"

#include "zoflv/dmx/zoflv_mem.h"
#include "zoflv/dmx/zoflvd_info.h"
#include "zoflv/dmx/zoflvd_kf.h"
#include "zoflv/dmx/zoflvd_log.h"
#include "zoflv/dmx/zoflvd_priv.h"
#include "zoflv/dmx/zoflvds_priv.h"

#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

void stream_release(ZOFLVDS* s)
{
    zoflvd_mblk_dtor(&s->idx);
    std::free(s->sh.csd);
    if (s->fh)
        s->mfal.close(s->fh);
    *s = ZOFLVDS{};
    zoflv_clear_magic(&s->magic);
    std::free(s);
}

struct StreamRelease {
    void operator()(ZOFLVDS* s) const { stream_release(s); }
};

// Copies the demuxer's record of the stream, with codec data of its own.
int copy_record(ZOFLVDS* s, const ZOFLVD_SH& from)
{
    s->sh = from;
    s->sh.csd = nullptr; // still the demuxer's block
    if (!from.csd || from.csd_size < 1)
        return ZOFLV_OK;
    const size_t size = static_cast<size_t>(from.csd_size);
    s->sh.csd = static_cast<uint8_t*>(std::malloc(size));
    if (!s->sh.csd)
        return ZOFLV_ERR_MALLOC;
    std::memcpy(s->sh.csd, from.csd, size);
    return ZOFLV_OK;
}

int stream_fill(ZOFLVDS* s, ZOFLVD* h, int strm_indx)
{
    constexpr unsigned long mode_audio = 2;
    constexpr unsigned long mode_video = 6;

    const ZOFLVD_SH& sh = h->sh[strm_indx];
    s->mfal = h->mfal;
    s->fh = s->mfal.open(&s->mfal, sh.strm_type == ZOFLV_TAG_VIDEO ? mode_video : mode_audio);
    if (!s->fh)
        return ZOFLV_ERR_FILEIO;
    int rc = zoflvd_kf_build(&h->metadata, &s->mfal, s->fh, &s->idx);
    if (rc != ZOFLV_OK) {
        zoflvd_log_warning("keyframe cache from metadata: failed");
        return rc;
    }
    rc = copy_record(s, sh);
    if (rc != ZOFLV_OK)
        return rc;
    if (h->info.duration < s->sh.duration)
        h->info.duration = s->sh.duration;
    if (zoflv_file_setpos(&s->mfal, s->fh, s->sh.first_tag_pos) != 0)
        return ZOFLV_ERR_FILEIO;
    s->fetch_tag = 1;
    s->magic = ZOFLVDS_MAGIC; // valid only from now on
    s->self = s;
    return ZOFLV_OK;
}

} // namespace

ZOFLVDS* zoflvds_open(ZOFLVD* h, int strm_indx, int* err)
{
    if (!zoflvd_is_valid(h))
        return nullptr;
    if (!zoflvd_has_stream(h, strm_indx)) {
        zoflvd_fail(2413);
        return nullptr;
    }
    std::unique_ptr<ZOFLVDS, StreamRelease> s(
        static_cast<ZOFLVDS*>(std::calloc(1, sizeof(ZOFLVDS))));
    const int rc = s ? stream_fill(s.get(), h, strm_indx) : ZOFLV_ERR_MALLOC;
    if (err)
        *err = rc;
    if (rc != ZOFLV_OK) {
        zoflvd_log_error("zoflvds_open() failed");
        return nullptr;
    }
    return s.release();
}

void zoflvds_close(ZOFLVDS* s)
{
    if (zoflvds_is_valid(s))
        stream_release(s);
}

int zoflvds_get_info_vid(ZOFLVDS* s, ZOFLVD_INFO_VID* out)
{
    if (!zoflvds_is_valid(s) || !out)
        return ZOFLV_ERR_FAIL;
    zoflvd_copy_info(s->sh, out);
    return ZOFLV_OK;
}

int zoflvds_get_info_aud(ZOFLVDS* s, ZOFLVD_INFO_AUD* out)
{
    if (!zoflvds_is_valid(s) || !out)
        return ZOFLV_ERR_FAIL;
    zoflvd_copy_info(s->sh, out);
    return ZOFLV_OK;
}

int zoflvds_get_format(ZOFLVDS* s, void* buf, int* size)
{
    if (!zoflvds_is_valid(s))
        return ZOFLV_ERR_FAIL;
    return zoflvd_copy_format(s->sh, buf, size);
}

int zoflvds_get_idx_table(ZOFLVDS* s, void* buf, int buf_size, int* out_size, int* out_cnt)
{
    if (!zoflvds_is_valid(s))
        return ZOFLV_ERR_FAIL;
    const uint32_t count = zoflvd_mblk_elem_cnt(&s->idx);
    if (count == 0 || s->sh.strm_type != ZOFLV_TAG_VIDEO)
        return zoflvd_fail(3004, ZOFLV_ERR_UNSUPPORTED);
    // A metadata tag holds fewer than 2^21 array elements: the size fits.
    const int size = static_cast<int>(count) * static_cast<int>(sizeof(ZOFLVD_IDX_ENTRY));
    if (out_size)
        *out_size = size;
    if (out_cnt)
        *out_cnt = static_cast<int>(count);
    if (!buf)
        return ZOFLV_OK;
    if (buf_size < size)
        return ZOFLV_ERR_BUFSIZE;
    if (zoflvd_kf_table(&s->idx, static_cast<uint8_t*>(buf)) != count)
        return zoflvd_fail(3005);
    return ZOFLV_OK;
}

int zoflvd_get_idx_table(ZOFLVD* h, int strm_indx, void* buf, int buf_size, int* out_size,
                         int* out_cnt)
{
    if (!zoflvd_is_valid(h))
        return ZOFLV_ERR_FAIL;
    if (!zoflvd_has_stream(h, strm_indx))
        return zoflvd_fail(3006);
    if (h->sh[strm_indx].strm_type != ZOFLV_TAG_VIDEO)
        return zoflvd_fail(3007, ZOFLV_ERR_UNSUPPORTED);
    int rc = ZOFLV_ERR_FAIL;
    ZOFLVDS* s = zoflvds_open(h, strm_indx, &rc);
    if (!s) {
        zoflvd_log_warning("zoflvds_open failed");
        return rc;
    }
    rc = zoflvds_get_idx_table(s, buf, buf_size, out_size, out_cnt);
    zoflvds_close(s);
    return rc;
}
