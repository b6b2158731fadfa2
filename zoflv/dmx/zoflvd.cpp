// SPDX-License-Identifier: Apache-2.0
#include "zoflv/dmx/zoflvd.h"

#include "zoflv/dmx/zoflv_conv.h"
#include "zoflv/dmx/zoflv_mem.h"
#include "zoflv/dmx/zoflv_num.h"
#include "zoflv/dmx/zoflvd_info.h"
#include "zoflv/dmx/zoflvd_log.h"
#include "zoflv/dmx/zoflvd_priv.h"
#include "zoflv/dmx/zoflvd_tag.h"

#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>

namespace {

void handle_release(ZOFLVD* h)
{
    for (ZOFLVD_SH& sh : h->sh)
        std::free(sh.csd);
    zoflvd_metadata_deinit(&h->metadata);
    zoflv_clear_magic(&h->magic);
    std::free(h);
}

struct HandleRelease {
    void operator()(ZOFLVD* h) const { handle_release(h); }
};

// The file handle used while a file is probed.
struct ProbeFile {
    _ZOCMN_MFAL* mfal;
    void* fh;
    ~ProbeFile()
    {
        if (fh)
            mfal->close(fh);
    }
};

void add_stream(ZOFLVD* h, int type)
{
    h->sh[h->strm_cnt++].strm_type = static_cast<uint8_t>(type);
    ++(type == ZOFLV_TAG_AUDIO ? h->aud_cnt : h->vid_cnt);
}

// Signature, version, flags and DataOffset; names the streams that the flags announce.
int read_file_header(ZOFLVD* h, const ProbeFile& file)
{
    constexpr uint8_t flag_video = 0x01;
    constexpr uint8_t flag_audio = 0x04;

    uint8_t signature[3];
    if (!zoflv_file_read(file.mfal, file.fh, signature, sizeof signature))
        return zoflvd_log_error("read size error.");
    if (std::memcmp(signature, "FLV", sizeof signature) != 0)
        return zoflvd_log_error("ERR: wrong flv signature, exit.", ZOFLV_ERR_FORMAT);
    uint8_t version = 0;
    if (!zoflv_file_read(file.mfal, file.fh, &version, 1))
        return zoflvd_fail(127);
    if (version != 1) {
        __android_log_print(ANDROID_LOG_ERROR, ZOFLVD_LOG_TAG,
                            "ERR: wrong file format version (%u), exit.", unsigned{version});
        return ZOFLV_ERR_FORMAT;
    }
    uint8_t flags = 0;
    if (!zoflv_file_read(file.mfal, file.fh, &flags, 1))
        return zoflvd_fail(140, ZOFLV_ERR_FILEIO);
    uint8_t data_offset[4];
    if (!zoflv_file_read(file.mfal, file.fh, data_offset, sizeof data_offset))
        return zoflvd_fail(146, ZOFLV_ERR_FILEIO);
    h->first_tag_pos = uint32_t{zoflv_be32(data_offset) + ZOFLV_PREV_TAG_SIZE}; // wraps at 2^32
    if (flags & flag_audio)
        add_stream(h, ZOFLV_TAG_AUDIO);
    if (flags & flag_video)
        add_stream(h, ZOFLV_TAG_VIDEO);
    return ZOFLV_OK;
}

// Looks at one byte as a TagType; steps to the next tag when it is one. False ends the scan.
bool scan_tag(ZOFLVD* h, const ProbeFile& file, uint8_t* scratch)
{
    if (!zoflv_file_read(file.mfal, file.fh, scratch, 1))
        return false;
    const int type = scratch[0];
    if ((type == ZOFLV_TAG_VIDEO && h->vid_cnt == 0) ||
        (type == ZOFLV_TAG_AUDIO && h->aud_cnt == 0))
        add_stream(h, type);
    if (h->strm_cnt == ZOFLV_MAX_STREAMS)
        return true;
    if (type != ZOFLV_TAG_AUDIO && type != ZOFLV_TAG_VIDEO && type != ZOFLV_TAG_SCRIPT)
        return true;                                      // no skip: the next byte is tried
    if (!zoflv_file_read(file.mfal, file.fh, scratch, 3)) // DataSize
        return false;
    // The rest of the header, the data and PreviousTagSize: onto the next TagType.
    const int64_t rest = int64_t{zoflv_be24(scratch)} + ZOFLV_TAG_OVERHEAD - 4;
    return zoflv_file_skip(file.mfal, file.fh, rest) == 0;
}

// Finds the streams of a file whose flags name none by the types of its first tags.
void scan_streams(ZOFLVD* h, const ProbeFile& file)
{
    constexpr int max_types = 10;

    int64_t start = 0;
    if (zoflv_file_getpos(file.mfal, file.fh, &start) != 0)
        return;
    const zoflv_block scratch = zoflv_alloc(4);
    if (!scratch) {
        zoflvd_log_error("malloc err.");
        return;
    }
    bool more = zoflv_file_read(file.mfal, file.fh, scratch.get(), 4); // PreviousTagSize0
    for (int i = 0; more && i < max_types && h->strm_cnt < ZOFLV_MAX_STREAMS; ++i)
        more = scan_tag(h, file, scratch.get());
    if (!more)
        zoflvd_log_error("read err.");
    zoflv_file_setpos(file.mfal, file.fh, start);
}

int settle_streams(ZOFLVD* h, const ProbeFile& file, ZOFLVD_INFO* info)
{
    const ZOFLVD_SH_FILE in = {h->first_tag_pos, h->data_start,    h->data_len,
                               h->file_size,     h->info.duration, &h->metadata};
    for (int i = 0; i < h->strm_cnt; ++i) {
        uint32_t code = 0;
        if (zoflvd_sh_init(&h->sh[i], file.mfal, file.fh, &in, i, &code) != 0)
            return ZOFLV_ERR_FORMAT;
        info->strm_type[i] = h->sh[i].strm_type;
        info->codec[i] = code;
    }
    return ZOFLV_OK;
}

// The caller's duration wins over the metadata's; no stream is shorter than the file.
void settle_duration(ZOFLVD* h)
{
    if (h->ext_duration != 0)
        h->duration = h->ext_duration;
    else if (h->metadata.duration > 0.0)
        h->duration = zoflv_from_double<int64_t>(h->metadata.duration * ZOFLV_TICKS_PER_SECOND);
    for (int i = 0; i < h->strm_cnt; ++i) {
        if (h->sh[i].duration < h->duration)
            h->sh[i].duration = h->duration;
    }
}

int handle_fill(ZOFLVD* h, const ProbeFile& file, ZOFLVD_INFO* info)
{
    const int rc = read_file_header(h, file);
    if (rc != ZOFLV_OK)
        return zoflvd_fail(385, rc);
    if (h->strm_cnt == 0)
        scan_streams(h, file);
    if (h->strm_cnt == 0)
        return zoflvd_fail(397, ZOFLV_OK); // no stream: a failure whose code is 0

    h->data_start = h->first_tag_pos;
    // A file without usable metadata is played all the same.
    zoflvd_metadata_init(file.mfal, file.fh, &h->first_tag_pos, &h->metadata, &h->data_start);
    if (zoflv_file_getsize(file.mfal, file.fh, &h->file_size) != 0)
        return ZOFLV_ERR_FILEIO;
    h->data_len = zoflv_sub_sat(h->file_size, h->data_start);
    if (info->region_cnt < static_cast<int32_t>(std::size(info->region)))
        info->region[info->region_cnt++] = {0, h->data_start, h->data_len};

    const int streams = settle_streams(h, file, info);
    if (streams != ZOFLV_OK)
        return streams;
    settle_duration(h);
    info->duration = h->duration;
    info->strm_cnt = h->strm_cnt;
    info->aud_cnt = h->aud_cnt;
    info->vid_cnt = h->vid_cnt;
    info->seekable = 1;
    h->info = *info;
    h->mfal = *file.mfal;
    h->magic = ZOFLVD_MAGIC; // valid only from now on
    h->self = h;
    return ZOFLV_OK;
}

// Opens and fills a handle; null with `*rc` told.
ZOFLVD* handle_open(_ZOCMN_MFAL* mfal, const int64_t* duration, ZOFLVD_INFO* info, int* rc)
{
    *rc = ZOFLV_OK;
    if (!duration || !mfal || !info) {
        zoflvd_log_error("ERR: invalid argument, exit.");
        return nullptr;
    }
    *info = ZOFLVD_INFO{};
    const ProbeFile file = {mfal, mfal->open(mfal, 0)};
    if (!file.fh) {
        *rc = zoflvd_log_error("fopen() failed", ZOFLV_ERR_FILEIO);
        return nullptr;
    }
    std::unique_ptr<ZOFLVD, HandleRelease> h(static_cast<ZOFLVD*>(std::calloc(1, sizeof(ZOFLVD))));
    if (!h) {
        *rc = ZOFLV_ERR_MALLOC;
        return nullptr;
    }
    h->ext_duration = *duration;
    *rc = handle_fill(h.get(), file, info);
    return zoflvd_is_valid(h.get()) ? h.release() : nullptr;
}

} // namespace

ZOFLVD* zoflvd_create(_ZOCMN_MFAL* mfal, const int64_t* duration, ZOFLVD_INFO* info, int* err)
{
    int rc = ZOFLV_OK;
    ZOFLVD* h = handle_open(mfal, duration, info, &rc);
    if (!h)
        zoflvd_log_error("zoflvd_create() failed");
    if (err)
        *err = rc;
    return h;
}

void zoflvd_delete(ZOFLVD* h)
{
    if (zoflvd_is_valid(h))
        handle_release(h);
}

int zoflvd_get_info(ZOFLVD* h, ZOFLVD_INFO* out)
{
    if (!zoflvd_is_valid(h))
        return ZOFLV_ERR_FAIL;
    if (!out)
        return zoflvd_log_error("info is null");
    *out = h->info;
    return ZOFLV_OK;
}

int zoflvd_get_info_vid(ZOFLVD* h, int strm_indx, ZOFLVD_INFO_VID* out)
{
    if (!zoflvd_is_valid(h))
        return ZOFLV_ERR_FAIL;
    if (!zoflvd_has_stream(h, strm_indx))
        return zoflvd_log_error("invalid strm_indx.");
    if (!out)
        return ZOFLV_ERR_FAIL;
    zoflvd_copy_info(h->sh[strm_indx], out);
    return ZOFLV_OK;
}

int zoflvd_get_info_aud(ZOFLVD* h, int strm_indx, ZOFLVD_INFO_AUD* out)
{
    if (!zoflvd_is_valid(h))
        return ZOFLV_ERR_FAIL;
    if (!out)
        return zoflvd_fail(615);
    if (!zoflvd_has_stream(h, strm_indx))
        return zoflvd_fail(620);
    zoflvd_copy_info(h->sh[strm_indx], out);
    return ZOFLV_OK;
}

int zoflvd_get_format(ZOFLVD* h, int strm_indx, void* buf, int* size)
{
    if (!zoflvd_is_valid(h))
        return ZOFLV_ERR_FAIL;
    if (!zoflvd_has_stream(h, strm_indx))
        return zoflvd_fail(2161);
    return zoflvd_copy_format(h->sh[strm_indx], buf, size);
}
