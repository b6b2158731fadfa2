// SPDX-License-Identifier: Apache-2.0
#include "zoflv/dmx/zoflvd.h"

#include "zoflv/dmx/zoflv_conv.h"
#include "zoflv/dmx/zoflv_mem.h"
#include "zoflv/dmx/zoflv_num.h"
#include "zoflv/dmx/zoflvd_crawl.h"
#include "zoflv/dmx/zoflvd_info.h"
#include "zoflv/dmx/zoflvd_log.h"
#include "zoflv/dmx/zoflvd_priv.h"
#include "zoflv/dmx/zoflvd_rdbuf.h"

#include <cstddef>
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

// ==================================================================== Tags

int zoflvd_tag_read(const _ZOCMN_MFAL* mfal, void* fh, ZOFLVD_TAG* tag)
{
    if (!mfal || !fh || !tag)
        return zoflvd_log_error("ERR: invalid argument, exit.");
    *tag = ZOFLVD_TAG{};
    int64_t pos = 0;
    if (zoflv_file_getpos(mfal, fh, &pos) != 0)
        return zoflvd_log_error("ZOFLV_ERR_FILEIO.", ZOFLV_ERR_FILEIO);
    uint8_t header[ZOFLV_TAG_HEADER];
    ZOFLVD_RDBUF rb;
    const int rc = zoflvd_rdbuf_init(&rb, header, sizeof header, mfal, fh, 1);
    if (rc != ZOFLV_OK)
        return rc;
    uint32_t time_low = 0;
    uint8_t time_high = 0;
    if (zoflvd_rdbuf_byte(&rb, &tag->type) != ZOFLV_OK) // TagType
        return zoflvd_fail(291, ZOFLV_ERR_FORMAT);
    if (zoflvd_rdbuf_int24(&rb, &tag->data_size) != ZOFLV_OK) // DataSize
        return zoflvd_fail(297, ZOFLV_ERR_FORMAT);
    if (zoflvd_rdbuf_int24(&rb, &time_low) != ZOFLV_OK) // Timestamp
        return zoflvd_fail(303, ZOFLV_ERR_FORMAT);
    if (zoflvd_rdbuf_byte(&rb, &time_high) != ZOFLV_OK) // TimestampExtended
        return zoflvd_fail(309, ZOFLV_ERR_FORMAT);
    if (zoflvd_rdbuf_int24(&rb, &tag->strm_id) != ZOFLV_OK) // StreamID
        return zoflvd_fail(320, ZOFLV_ERR_FORMAT);
    const uint32_t time_ms = uint32_t{time_high} << 24 | time_low; // unsigned: up to 49 days
    tag->timestamp = int64_t{time_ms} * ZOFLV_TICKS_PER_MS;
    tag->pos = pos;
    return ZOFLV_OK;
}

int zoflvd_tag_next(const _ZOCMN_MFAL* mfal, void* fh, const int64_t* start, int type, int max_tags,
                    const int64_t* end, ZOFLVD_TAG* tag)
{
    if (!mfal || !fh || !start || !end || !tag)
        return ZOFLV_ERR_FAIL;
    if (*end <= 0)
        return zoflvd_fail(2578);
    tag->found = 0;
    tag->type = 0;
    int64_t pos = *start;
    bool examined = false;
    for (int count = 0; pos < *end;) {
        if (zoflv_file_setpos(mfal, fh, pos) != 0)
            return zoflvd_fail(2595);
        const int rc = zoflvd_tag_read(mfal, fh, tag);
        if (rc != ZOFLV_OK) {
            // No later read from this file is to find data.
            return zoflv_file_setpos(mfal, fh, *end) == 0 ? rc : zoflvd_fail(2602);
        }
        if (tag->type == type) {
            tag->found = 1;
            tag->pos = pos;
            return ZOFLV_OK;
        }
        examined = true;
        if (max_tags >= 1 && ++count >= max_tags) {
            __android_log_print(ANDROID_LOG_ERROR, ZOFLVD_LOG_TAG,
                                "tag of stream type %d not found", type);
            return ZOFLV_ERR_FAIL;
        }
        if (!zoflv_pos_add(pos, int64_t{tag->data_size} + ZOFLV_TAG_OVERHEAD, &pos))
            break;
    }
    if (examined)
        zoflv_file_setpos(mfal, fh, *end); // not on the data of a tag that was passed over
    return ZOFLV_ERR_FAIL;
}

// ================================================================= Streams

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

// ================================================================== Frames

namespace {

// Where a frame goes and what is told of it. `buf` null: only its length is asked for.
struct FrameOut {
    uint8_t* buf;
    int buf_size;
    int* frm_len;
    int64_t* next_time;
};

bool stands_on_data(const ZOFLVD_TAG& tag, int64_t pos)
{
    int64_t data = 0;
    return zoflv_pos_add(tag.pos, ZOFLV_TAG_HEADER, &data) && pos == data;
}

// Takes the tag read ahead, or searches the next one from the file's position.
int fetch_tag(ZOFLVDS* s)
{
    s->cur_tag.type = 0;
    s->cur_tag.data_size = 0;
    int64_t pos = 0;
    const bool ahead = s->next_tag.found == 1;
    if (zoflv_file_getpos(&s->mfal, s->fh, &pos) != 0)
        return zoflvd_fail(ahead ? 789 : 804, ZOFLV_EOF);
    if (!ahead) {
        const int rc = zoflvd_tag_next(&s->mfal, s->fh, &pos, s->sh.strm_type, 0, &s->sh.file_size,
                                       &s->cur_tag);
        return rc == ZOFLV_OK ? ZOFLV_OK : ZOFLV_EOF;
    }
    if (!stands_on_data(s->next_tag, pos))
        return zoflvd_fail(793, ZOFLV_EOF);
    s->cur_tag = s->next_tag;
    s->next_tag.found = 0;
    return ZOFLV_OK;
}

// The tag of an earlier length query still has to be read: the file must stand on its data.
int check_pending_tag(ZOFLVDS* s)
{
    if (s->cur_tag.found != 1)
        return zoflvd_fail(1108);
    int64_t pos = 0;
    if (zoflv_file_getpos(&s->mfal, s->fh, &pos) != 0)
        return zoflvd_fail(1112);
    if (!stands_on_data(s->cur_tag, pos))
        return zoflvd_log_error("err: frame data fp is wrong!");
    return ZOFLV_OK;
}

// Ends the stream: every later read finds no tag.
void move_to_end(ZOFLVDS* s)
{
    zoflv_file_setpos(&s->mfal, s->fh, s->sh.file_size);
    s->fetch_tag = 1;
}

// Drops the frame: the next read goes on with the tag behind it.
void move_behind_tag(ZOFLVDS* s)
{
    int64_t behind = 0;
    if (zoflv_pos_add(s->cur_tag.pos, int64_t{s->cur_tag.data_size} + ZOFLV_TAG_OVERHEAD, &behind))
        zoflv_file_setpos(&s->mfal, s->fh, behind);
    s->fetch_tag = 1;
}

int drop_frame(ZOFLVDS* s, int check)
{
    zoflvd_fail(check);
    move_behind_tag(s);
    return ZOFLV_EOF;
}

int get_plain_frame(ZOFLVDS* s, const FrameOut& out)
{
    // The SoundFormat or FrameType/CodecID byte, and AACPacketType.
    const int header = s->sh.fourcc_out == ZOFLV_FOURCC_AAC ? 2 : 1;
    const int data_size = static_cast<int>(s->cur_tag.data_size);
    const int length = data_size - header;
    *out.frm_len = length;
    if (!out.buf)
        return ZOFLV_OK;
    if (length > out.buf_size) {
        *out.frm_len = data_size - 1;
        if (zoflv_file_skip(&s->mfal, s->fh, data_size) != 0)
            return drop_frame(s, 912);
        if (zoflvds_get_frm_finalyze(s, *out.frm_len, out.next_time) != ZOFLV_OK)
            return zoflvd_fail(916, ZOFLV_EOF);
        return ZOFLV_ERR_BUFSIZE;
    }
    if (zoflv_file_skip(&s->mfal, s->fh, header) != 0)
        return drop_frame(s, 1190);
    if (!zoflv_file_read(&s->mfal, s->fh, out.buf, length))
        return drop_frame(s, 1196);
    return zoflvds_get_frm_finalyze(s, length, out.next_time);
}

int avc_give_up(ZOFLVDS* s, int check)
{
    zoflvd_fail(check);
    move_to_end(s);
    return zoflvd_fail(1146, ZOFLV_EOF);
}

int avc_drop(ZOFLVDS* s, int check)
{
    zoflvd_fail(check);
    zoflvd_fail(1146);
    move_behind_tag(s);
    return ZOFLV_EOF;
}

// Reads the big-endian length field before a NAL unit. False with its line when it is not there.
bool read_nal_length(ZOFLVDS* s, int field_size, uint32_t* length)
{
    uint8_t field[4];
    if (!zoflv_file_read(&s->mfal, s->fh, field, field_size)) {
        zoflvd_fail(691);
        return false;
    }
    *length = static_cast<uint32_t>(zoflv_be(field, field_size));
    return true;
}

// Copies one NAL unit behind a start code, to `written` bytes into the buffer; without a buffer
// passes it over. False with the line of the failure.
bool copy_nal(ZOFLVDS* s, const FrameOut& out, int64_t written, int64_t length)
{
    static constexpr uint8_t start_code[4] = {0, 0, 0, 1};
    constexpr int64_t code_size = sizeof start_code;

    if (!out.buf) {
        if (length < 1 || zoflv_file_skip(&s->mfal, s->fh, length) == 0)
            return true;
        zoflvd_fail(732);
        return false;
    }
    if (written + code_size + length > out.buf_size) {
        zoflvd_fail(711);
        return false;
    }
    std::memcpy(out.buf + written, start_code, sizeof start_code);
    if (!zoflv_file_read(&s->mfal, s->fh, out.buf + written + code_size,
                         static_cast<int>(length))) {
        zoflvd_fail(720);
        return false;
    }
    return true;
}

// Turns `payload` bytes of length-prefixed NAL units into start-code form.
bool copy_nals(ZOFLVDS* s, const FrameOut& out, int64_t payload)
{
    const int field_size = s->sh.h264_frm_len_size;
    if (field_size < 1 || field_size > 4) {
        zoflvd_log_error("h264_frm_len_size error.");
        return false;
    }
    int64_t start = 0;
    if (zoflv_file_getpos(&s->mfal, s->fh, &start) != 0) {
        zoflvd_fail(662);
        return false;
    }
    int64_t written = 0;
    for (int64_t left = payload; left > 0;) {
        if (out.buf && written >= out.buf_size) {
            zoflvd_fail(671);
            return false;
        }
        uint32_t length = 0;
        left -= field_size;
        if (!read_nal_length(s, field_size, &length))
            return false;
        if (left <= 0) {
            zoflvd_fail(701);
            return false;
        }
        const int64_t unit = length < left ? int64_t{length} : left;
        if (!copy_nal(s, out, written, unit))
            return false;
        written += 4 + unit;
        left -= unit;
    }
    *out.frm_len = static_cast<int>(written); // at most 4 x 2^24
    int64_t end = 0;
    if (zoflv_file_getpos(&s->mfal, s->fh, &end) != 0) {
        zoflvd_fail(743);
        return false;
    }
    int64_t wanted = 0;
    if (!zoflv_pos_add(start, payload, &wanted) ||
        (end != wanted && zoflv_file_setpos(&s->mfal, s->fh, wanted) != 0)) {
        zoflvd_fail(751);
        return false;
    }
    return true;
}

// Writes the parameter sets of the record at `rb`, or tells their size alone. False when the record
// cannot be read, or does not fit.
bool copy_parameter_sets(ZOFLVDS* s, const FrameOut& out, ZOFLVD_RDBUF* rb)
{
    int32_t size = 0;
    if (sh_video_avc_dec_cfg(&s->sh, rb, nullptr, &size, nullptr, nullptr) != 0)
        return false;
    if (!out.buf) {
        *out.frm_len = size;
        return true;
    }
    // What is written can be longer than the record: start codes take the place of short lengths.
    if (size > out.buf_size)
        return false;
    zoflvd_rdbuf_rewind(rb, 0);
    return sh_video_avc_dec_cfg(&s->sh, rb, out.buf, out.frm_len, nullptr, nullptr) == 0;
}

// A new configuration inside the stream: the frame is its parameter sets. 0, or 1 after giving up.
int copy_configuration(ZOFLVDS* s, const FrameOut& out, int payload)
{
    const zoflv_block block = zoflv_alloc(static_cast<size_t>(payload));
    if (!block)
        return avc_give_up(s, 992);
    ZOFLVD_RDBUF rb;
    if (zoflvd_rdbuf_init(&rb, block.get(), payload, &s->mfal, s->fh, 1) != ZOFLV_OK)
        return avc_give_up(s, 998);
    return copy_parameter_sets(s, out, &rb) ? ZOFLV_OK : avc_give_up(s, 1004);
}

int get_avc_frame(ZOFLVDS* s, const FrameOut& out)
{
    constexpr int header = 5; // FrameType/CodecID, AVCPacketType, CompositionTime
    constexpr uint8_t packet_configuration = 0;
    constexpr uint8_t packet_nal_units = 1;

    int64_t data = 0;
    if (zoflv_file_getpos(&s->mfal, s->fh, &data) != 0)
        return avc_give_up(s, 952);
    if (zoflv_file_skip(&s->mfal, s->fh, 1) != 0)
        return avc_drop(s, 960);
    uint8_t packet_type = 0;
    if (!zoflv_file_read(&s->mfal, s->fh, &packet_type, 1))
        return avc_give_up(s, 967);
    uint8_t composition_time[3]; // not used
    if (!zoflv_file_read(&s->mfal, s->fh, composition_time, sizeof composition_time))
        return avc_give_up(s, 974);
    const int payload = static_cast<int>(s->cur_tag.data_size) - header;
    if (payload <= 0)
        return avc_drop(s, 982);

    if (packet_type == packet_nal_units) {
        if (!copy_nals(s, out, payload))
            return avc_give_up(s, 1018);
    } else if (packet_type == packet_configuration) {
        const int rc = copy_configuration(s, out, payload);
        if (rc != ZOFLV_OK)
            return rc;
    }

    if (!out.buf) {
        if (zoflv_file_setpos(&s->mfal, s->fh, data) != 0)
            return avc_give_up(s, 1060);
        if (out.next_time)
            *out.next_time = s->cur_tag.timestamp;
        return ZOFLV_OK;
    }
    int64_t behind = 0;
    if (!zoflv_pos_add(data, s->cur_tag.data_size, &behind) ||
        zoflv_file_setpos(&s->mfal, s->fh, behind) != 0)
        return avc_give_up(s, 1040);
    if (zoflvds_get_frm_finalyze(s, *out.frm_len, out.next_time) != ZOFLV_OK)
        return avc_give_up(s, 1050);
    return ZOFLV_OK;
}

} // namespace

int zoflvds_get_frm(ZOFLVDS* s, uint8_t* buf, int buf_size, int* frm_len, int64_t* time,
                    int64_t* next_time)
{
    if (!zoflvds_is_valid(s) || !frm_len)
        return ZOFLV_ERR_FAIL;
    const int rc = s->fetch_tag ? fetch_tag(s) : check_pending_tag(s);
    if (rc != ZOFLV_OK)
        return rc;
    if (s->cur_tag.found != 1)
        return zoflvd_fail(1123, ZOFLV_EOF);
    s->fetch_tag = buf ? 1 : 0;
    if (s->cur_tag.data_size <= 1) {
        zoflvd_fail(1132);
        move_to_end(s);
        return ZOFLV_EOF;
    }
    *frm_len = 0;
    if (time)
        *time = s->cur_tag.timestamp;
    if (next_time)
        *next_time = s->cur_tag.timestamp;
    const FrameOut out = {buf, buf_size, frm_len, next_time};
    return s->sh.fourcc_out == ZOFLV_FOURCC_H264 ? get_avc_frame(s, out) : get_plain_frame(s, out);
}

int zoflvds_get_frm_finalyze(ZOFLVDS* s, int, int64_t* next_time)
{
    if (!zoflvds_is_valid(s))
        return zoflvd_fail(859);
    uint8_t prev_tag_size[ZOFLV_PREV_TAG_SIZE]; // not compared with anything
    if (!zoflv_file_read(&s->mfal, s->fh, prev_tag_size, sizeof prev_tag_size)) {
        zoflvd_fail(830);
        return zoflvd_fail(865);
    }
    int64_t pos = 0;
    if (zoflv_file_getpos(&s->mfal, s->fh, &pos) != 0)
        return zoflvd_fail(871);
    const int rc =
        zoflvd_tag_next(&s->mfal, s->fh, &pos, s->sh.strm_type, 0, &s->sh.file_size, &s->next_tag);
    if (next_time)
        *next_time = rc == ZOFLV_OK ? s->next_tag.timestamp : s->cur_tag.timestamp;
    return ZOFLV_OK;
}

// ========================================================== Keyframe index

namespace {

ZOFLVD_KF entry_of(const void* entry)
{
    ZOFLVD_KF kf;
    std::memcpy(&kf, entry, sizeof kf); // blocks of a 32-bit host align elements to 4 bytes only
    return kf;
}

// Tells whether a tag stands at the first keyframe's offset, or at least its type. 0, or a code to
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

// ==================================================================== Seek

namespace {

// ---- Searching the bytes for a tag header

// A sliding window over the file. Offsets below `scan_end` are looked at; a tag must end before
// `limit`.
struct ByteScan {
    const _ZOCMN_MFAL* mfal;
    void* fh;
    uint8_t* window; // ZOFLVD_SCAN_WINDOW bytes, the caller's
    int64_t scan_end;
    int64_t limit;
    int64_t start;   // file offset of the window's first byte
    int length;      // bytes in the window
    int64_t checked; // offsets looked at in earlier windows
};

bool looks_like_header(const uint8_t* p)
{
    const bool type =
        p[0] == ZOFLV_TAG_AUDIO || p[0] == ZOFLV_TAG_VIDEO || p[0] == ZOFLV_TAG_SCRIPT;
    return type && p[8] == 0 && p[9] == 0 && p[10] == 0; // StreamID
}

// Reads the four bytes at `pos`, from the window where it holds them; the file stays where it is.
bool read_prev_tag_size(const ByteScan& scan, int64_t pos, uint32_t* value)
{
    uint8_t raw[ZOFLV_PREV_TAG_SIZE];
    if (pos - scan.start <= scan.length - ZOFLV_PREV_TAG_SIZE) {
        std::memcpy(raw, scan.window + (pos - scan.start), sizeof raw);
    } else {
        int64_t back = 0;
        if (zoflv_file_getpos(scan.mfal, scan.fh, &back) != 0 ||
            zoflv_file_setpos(scan.mfal, scan.fh, pos) != 0 ||
            !zoflv_file_read(scan.mfal, scan.fh, raw, sizeof raw) ||
            zoflv_file_setpos(scan.mfal, scan.fh, back) != 0)
            return false;
    }
    *value = zoflv_be32(raw);
    return true;
}

// Tests the bytes at offset `at` of the window as a tag. 0: it is one, the file stands behind its
// PreviousTagSize; 1: it is none; -1: failure.
int check_candidate(const ByteScan& scan, int at, ZOFLVD_TAG* tag)
{
    const uint8_t* p = scan.window + at;
    if (!looks_like_header(p))
        return ZOFLV_EOF;
    const uint32_t size = zoflv_be24(p + 1);
    const int64_t pos = scan.start + at;
    if (scan.limit - pos <= int64_t{size} + ZOFLV_TAG_OVERHEAD)
        return ZOFLV_EOF;
    const int64_t field = pos + size + ZOFLV_TAG_HEADER;
    uint32_t prev_tag_size = 0;
    if (!read_prev_tag_size(scan, field, &prev_tag_size))
        return ZOFLV_ERR_FAIL;
    // Some writers count the field itself too.
    if (prev_tag_size != size + ZOFLV_TAG_HEADER && prev_tag_size != size + ZOFLV_TAG_OVERHEAD)
        return ZOFLV_EOF;
    if (zoflv_file_setpos(scan.mfal, scan.fh, field + ZOFLV_PREV_TAG_SIZE) != 0)
        return ZOFLV_ERR_FAIL;
    *tag = ZOFLVD_TAG{};
    tag->type = p[0];
    tag->data_size = size;
    const uint32_t time_ms = uint32_t{p[7]} << 24 | zoflv_be24(p + 4);
    tag->timestamp = int64_t{static_cast<int32_t>(time_ms)} * ZOFLV_TICKS_PER_MS; // signed here
    tag->pos = pos;
    return ZOFLV_OK;
}

// Moves the window on: its last unchecked bytes stay, the rest is read behind them. False on
// failure.
bool fill_window(ByteScan* scan, int64_t pos)
{
    const int kept = scan->length < ZOFLV_TAG_HEADER ? scan->length : ZOFLV_TAG_HEADER - 1;
    std::memmove(scan->window, scan->window + (scan->length - kept), static_cast<size_t>(kept));
    const int64_t left = zoflv_sub_sat(scan->scan_end, pos);
    const int64_t room = ZOFLVD_SCAN_WINDOW - kept;
    const int64_t wanted = left < room ? left : room;
    if (wanted < 0 ||
        !zoflv_file_read(scan->mfal, scan->fh, scan->window + kept, static_cast<int>(wanted)))
        return false;
    scan->start = pos - kept;
    scan->length = kept + static_cast<int>(wanted);
    return true;
}

int scan_windows(ByteScan* scan, int64_t start, ZOFLVD_TAG* tag)
{
    int64_t pos = start;
    while (pos < scan->scan_end) {
        if (zoflv_file_getpos(scan->mfal, scan->fh, &pos) != 0 || !fill_window(scan, pos))
            return zoflvd_fail(3101);
        const int offsets = scan->length - (ZOFLV_TAG_HEADER - 1);
        for (int at = 0; at < offsets; ++at) {
            const int rc = check_candidate(*scan, at, tag);
            if (rc == ZOFLV_ERR_FAIL)
                return zoflvd_fail(3102);
            if (rc == ZOFLV_OK)
                return ZOFLV_OK;
        }
        if (offsets > 0)
            scan->checked += offsets;
    }
    return ZOFLV_EOF;
}

} // namespace

int zoflvd_scan_bytes(const _ZOCMN_MFAL* mfal, void* fh, uint8_t* buf, int64_t start,
                      int64_t scan_end, int64_t limit, ZOFLVD_TAG* tag)
{
    ByteScan scan = {mfal, fh, buf, scan_end < limit ? scan_end : limit, limit, start, 0, 0};
    const int rc = scan_windows(&scan, start, tag);
    if (rc == ZOFLV_ERR_FAIL) {
        __android_log_print(ANDROID_LOG_ERROR, ZOFLVD_LOG_TAG, "frm search: %d bytes checked",
                            zoflv_wrap32(scan.checked));
        zoflvd_log_error("zoflvds_seek_bytestream_tag() failed");
    }
    return rc;
}

int zoflvds_seek_bytestream_tag(const _ZOCMN_MFAL* mfal, void* fh, uint8_t* buf, int64_t start,
                                int64_t limit, ZOFLVD_TAG* tag)
{
    return zoflvd_scan_bytes(mfal, fh, buf, start, limit, limit, tag);
}

// ---- Without an index

namespace {

// target x data_len / duration, of a target within the duration. Times are divided by 1 ms first
// where they allow it; where the product still does not fit, both are halved: it is an estimate.
int64_t estimate_offset(int64_t target, int64_t duration, int64_t data_len)
{
    if (target <= 0)
        return 0;
    if (duration >= ZOFLV_TICKS_PER_MS) {
        target /= ZOFLV_TICKS_PER_MS;
        duration /= ZOFLV_TICKS_PER_MS;
    }
    int64_t product = 0;
    while (__builtin_mul_overflow(target, data_len, &product)) {
        target /= 2;
        duration /= 2;
    }
    return product / (duration > 0 ? duration : 1);
}

// Finds a tag that lies before the target in time, going back from an estimate of its offset.
int find_start_tag(ZOFLVDS* s, int64_t target, uint8_t* buf, ZOFLVD_TAG* tag)
{
    constexpr int64_t back_off = 32768;
    constexpr double farthest = 0.9; // share of the file

    const ZOFLVD_SH& sh = s->sh;
    const int64_t far = zoflv_from_double<int64_t>(static_cast<double>(sh.file_size) * farthest);
    int64_t est = zoflv_add_sat(sh.data_start, estimate_offset(target, sh.duration, sh.data_len));
    int64_t scan_end = sh.file_size;
    for (;;) {
        const int64_t before = est;
        est = zoflv_sub_sat(est, back_off);
        if (est >= sh.file_size)
            est = far;
        else if (est < sh.data_start)
            est = sh.data_start;
        if (est > before) // moved up by the clamp: the last round looks at everything
            scan_end = sh.file_size;
        if (zoflv_file_setpos(&s->mfal, s->fh, est) != 0)
            return zoflvd_fail(3201);
        // Behind `scan_end` lies what the round before has searched: if there is nothing new, its
        // tag stays.
        const int rc = zoflvd_scan_bytes(&s->mfal, s->fh, buf, est, scan_end, sh.file_size, tag);
        if (rc == ZOFLV_ERR_FAIL || (rc == ZOFLV_EOF && scan_end == sh.file_size))
            return zoflvd_fail(3202);
        if (tag->pos <= sh.data_start || tag->timestamp < target || est == sh.data_start)
            return ZOFLV_OK;
        scan_end = zoflv_add_sat(est, ZOFLV_TAG_HEADER - 1);
    }
}

// The crawl has overshot without an answer: it is to search the other way.
bool has_overshot(const ZOFLVD_CRAWL& crawl, int64_t target, int mode)
{
    constexpr int64_t tolerance = 1000000; // 0.1 s

    const int64_t time = crawl.cur.timestamp;
    if (mode == ZOFLV_SEEK_PREVIOUS)
        return time > crawl.saved.timestamp && time - tolerance > target;
    return time < crawl.saved.timestamp && time - tolerance < target;
}

ZOFLVD_CRAWL_RANGE crawl_range(const ZOFLVDS* s)
{
    const int64_t end = zoflv_add_sat(s->sh.data_start, s->sh.data_len);
    return {&s->mfal, s->fh, s->sh.strm_type, s->sh.data_start, end};
}

int step(ZOFLVD_CRAWL* crawl)
{
    return crawl->next(crawl) < 0 ? zoflvd_fail(3203) : ZOFLV_OK;
}

// Leaves the file at the tag that the crawler has found, and tells its time.
int land(ZOFLVD_CRAWL* crawl, int64_t* out_time)
{
    if (crawl->setpos(crawl) != ZOFLV_OK)
        return zoflvd_fail(3204);
    if (out_time)
        *out_time = crawl->result;
    return ZOFLV_OK;
}

// Walks to the tag asked for. 0, or -1 when there is none, which is not logged.
int crawl_to_time(ZOFLVDS* s, const ZOFLVD_TAG& start, int64_t target, int mode,
                  ZOFLVD_CRAWL* crawl)
{
    constexpr int max_walked = 30720; // tags of the stream, per direction

    const ZOFLVD_CRAWL_RANGE range = crawl_range(s);
    if (zoflvd_crawl_init_seek(crawl, &start, &target, &range, mode) != ZOFLV_OK)
        return zoflvd_fail(3205);
    bool turned = false;
    int walked = 0;
    int found = crawl->check(crawl);
    while (found == 0) {
        if (step(crawl) != ZOFLV_OK)
            return ZOFLV_ERR_FAIL;
        if (crawl->cur.type == s->sh.strm_type && ++walked > max_walked)
            return ZOFLV_ERR_FAIL;
        if (!turned && has_overshot(*crawl, target, mode)) {
            const int rc = mode == ZOFLV_SEEK_PREVIOUS
                               ? zoflvd_crawl_init_reverse(crawl, &start, &target, &range)
                               : zoflvd_crawl_init_reverse_forw(crawl, &start, &target, &range);
            if (rc != ZOFLV_OK)
                return zoflvd_fail(3206);
            turned = true;
            walked = 0;
        }
        found = crawl->check(crawl);
    }
    return found == 2 ? ZOFLV_OK : ZOFLV_ERR_FAIL;
}

// The keyframe next to the current tag. 0, or 1.
int seek_from_current(ZOFLVDS* s, int64_t* out_time, int mode)
{
    const ZOFLVD_TAG& cur = s->cur_tag;
    // No tag was read yet, or the stream has ended: a forward step would take a frame for a header.
    if (cur.pos == 0 || (mode == ZOFLV_SEEK_NEXT && cur.type != s->sh.strm_type))
        return ZOFLV_EOF;
    const ZOFLVD_CRAWL_RANGE range = crawl_range(s);
    ZOFLVD_CRAWL crawl;
    if (zoflvd_crawl_init_keyfrm(&crawl, &cur, &range, mode == ZOFLV_SEEK_NEXT ? 1 : 0) != ZOFLV_OK)
        return zoflvd_fail(3207, ZOFLV_EOF);
    int found = 0;
    while (found == 0) {
        if (step(&crawl) != ZOFLV_OK)
            return ZOFLV_EOF;
        found = crawl.check(&crawl);
    }
    return found == 2 && land(&crawl, out_time) == ZOFLV_OK ? ZOFLV_OK : ZOFLV_EOF;
}

// The nearer of the keyframes before and behind the time: two searches.
int seek_closest(ZOFLVDS* s, int64_t time, int64_t* out_time)
{
    int64_t prev_time = 0;
    int64_t prev_pos = 0;
    const bool has_prev =
        zoflvds_seek_bytestream(s, &time, &prev_time, ZOFLV_SEEK_PREVIOUS) == ZOFLV_OK;
    if (has_prev && zoflv_file_getpos(&s->mfal, s->fh, &prev_pos) != 0)
        return zoflvd_fail(3208, ZOFLV_ERR_FILEIO);
    int64_t next_time = 0;
    const bool has_next =
        zoflvds_seek_bytestream(s, &time, &next_time, ZOFLV_SEEK_NEXT) == ZOFLV_OK;
    if (!has_prev && !has_next)
        return ZOFLV_ERR_FORMAT;
    const bool take_next =
        has_next && (!has_prev || zoflv_sub_sat(next_time, time) < zoflv_sub_sat(time, prev_time));
    if (!take_next && zoflv_file_setpos(&s->mfal, s->fh, prev_pos) != 0)
        return zoflvd_fail(3209, ZOFLV_ERR_FILEIO);
    if (out_time)
        *out_time = take_next ? next_time : prev_time;
    return ZOFLV_OK;
}

int seek_without_index(ZOFLVDS* s, int64_t time, int64_t* out_time, int mode)
{
    if (mode == ZOFLV_SEEK_CLOSEST)
        return seek_closest(s, time, out_time);
    return zoflvds_seek_bytestream(s, &time, out_time, mode) == ZOFLV_OK ? ZOFLV_OK
                                                                         : ZOFLV_ERR_FORMAT;
}

// ---- With an index

// A seek through the index once the entry is chosen.
struct IndexSeek {
    int64_t time;    // asked for
    ZOFLVD_KF entry; // chosen
    bool later;      // the entry is the one after the time
};

int keytag_error()
{
    return zoflvd_log_error("zoflvds_validate_keytag() failed", ZOFLV_ERR_FORMAT);
}

int keytag_fail(int check)
{
    zoflvd_fail(check);
    return keytag_error();
}

int keytag_setpos(ZOFLVDS* s, int64_t pos)
{
    return zoflv_file_setpos(&s->mfal, s->fh, pos) == 0 ? ZOFLV_OK : keytag_fail(3301);
}

int position_at_keytag(ZOFLVDS* s, int64_t pos, int64_t time, int64_t* out_time)
{
    const int rc = keytag_setpos(s, pos);
    if (rc != ZOFLV_OK)
        return rc;
    if (out_time)
        *out_time = time;
    return ZOFLV_OK;
}

// Tells whether the found tag is the keyframe of the entry: 0 yes, 1 no, other: a code to return.
int match_keytag(ZOFLVDS* s, const IndexSeek& seek, const ZOFLVD_TAG& found)
{
    constexpr int64_t tolerance = 10000; // 1 ms

    const int64_t off = zoflv_sub_sat(seek.entry.time, found.timestamp);
    if (off < -tolerance || off > tolerance || found.type != s->sh.strm_type)
        return ZOFLV_EOF;
    const int rc = keytag_setpos(s, found.pos);
    if (rc != ZOFLV_OK)
        return rc;
    if (found.type != ZOFLV_TAG_VIDEO)
        return ZOFLV_OK;
    uint8_t head[16];
    if (!zoflv_file_read(&s->mfal, s->fh, head, sizeof head))
        return keytag_fail(3302);
    return head[ZOFLV_TAG_HEADER] >> 4 == 1 ? ZOFLV_OK : ZOFLV_EOF; // FrameType
}

// The entry's offset holds no tag: looks for its keyframe nearby, then without the index.
int search_near(ZOFLVDS* s, const IndexSeek& seek, int64_t* out_time)
{
    constexpr int rounds = 10;
    constexpr int64_t round_step = 100;

    uint8_t window[ZOFLVD_SCAN_WINDOW];
    int64_t start = zoflv_sub_sat(seek.entry.pos, ZOFLVD_SCAN_WINDOW);
    if (start < 0)
        start = 0;
    ZOFLVD_TAG found = {};
    for (int round = 0; round < rounds; ++round, start = zoflv_add_sat(start, round_step)) {
        // The first tag from an earlier start is the first from this one, unless it lies before it:
        // the file is then left where the search would leave it, after the tag.
        const bool known = round > 0 && found.pos >= start;
        const int64_t pos = known ? found.pos + found.data_size + ZOFLV_TAG_OVERHEAD : start;
        const int positioned = keytag_setpos(s, pos);
        if (positioned != ZOFLV_OK)
            return positioned;
        if (!known && zoflvds_seek_bytestream_tag(&s->mfal, s->fh, window, start, s->sh.file_size,
                                                  &found) != ZOFLV_OK)
            return keytag_fail(3303);
        if (seek.later && found.timestamp < seek.time)
            continue;
        if (!seek.later && found.timestamp > seek.time)
            break;
        const int rc = match_keytag(s, seek, found);
        if (rc == ZOFLV_OK)
            return position_at_keytag(s, found.pos, found.timestamp, out_time);
        if (rc != ZOFLV_EOF)
            return rc;
    }
    if (zoflvds_seek_bytestream(s, &seek.time, out_time, ZOFLV_SEEK_PREVIOUS) != ZOFLV_OK)
        return keytag_error();
    return ZOFLV_OK;
}

// Confirms that a tag stands at the entry's offset, where the file is to be left.
int seek_to_entry(ZOFLVDS* s, const IndexSeek& seek, int64_t* out_time)
{
    if (zoflv_file_setpos(&s->mfal, s->fh, seek.entry.pos) != 0)
        return zoflvd_log_error("fsetpos() failed", ZOFLV_ERR_FORMAT);
    uint8_t head[16] = {};
    const int count = s->mfal.read(s->fh, head, sizeof head);
    if (count <= 0)
        return keytag_fail(3304);
    const bool audio_or_video = (head[0] & 0xFE) == ZOFLV_TAG_AUDIO;
    const bool stream_id = head[8] == 0 && head[9] == 0 && head[10] == 0;
    if (count >= ZOFLV_TAG_HEADER && audio_or_video && stream_id)
        return position_at_keytag(s, seek.entry.pos, seek.entry.time, out_time);
    return search_near(s, seek, out_time);
}

int seek_with_index(ZOFLVDS* s, int64_t time, int64_t* out_time, int mode)
{
    IndexSeek seek = {time, {}, false};
    const int rc = zoflvd_kf_choose(&s->idx, time, mode, &seek.entry, &seek.later);
    return rc == ZOFLV_OK ? seek_to_entry(s, seek, out_time) : rc;
}

} // namespace

int zoflvds_seek(ZOFLVDS* s, const int64_t* time, int64_t* out_time, int mode)
{
    if (!zoflvds_is_valid(s))
        return ZOFLV_ERR_FAIL;
    if (mode < ZOFLV_SEEK_PREVIOUS || mode > ZOFLV_SEEK_CLOSEST)
        return zoflvd_fail(3305);
    // Whatever comes of it, the next read begins with the tag at the file's position.
    s->cur_tag.found = 0;
    s->next_tag.found = 0;
    s->fetch_tag = 1;
    if (!time) {
        if (mode != ZOFLV_SEEK_NEXT && mode != ZOFLV_SEEK_BACK)
            return zoflvd_log_error("zoflvds_seek(): invalid mode arg");
        return seek_from_current(s, out_time, mode);
    }
    if (*time == 0) {
        if (zoflv_file_setpos(&s->mfal, s->fh, s->sh.first_tag_pos) != 0)
            return zoflvd_fail(3306, ZOFLV_ERR_FILEIO);
        if (out_time)
            *out_time = 0;
        return ZOFLV_OK;
    }
    if (zoflvd_mblk_elem_cnt(&s->idx) == 0)
        return seek_without_index(s, *time, out_time, mode);
    return seek_with_index(s, *time, out_time, mode);
}

int zoflvds_seek_bytestream(ZOFLVDS* s, const int64_t* time, int64_t* out_time, int mode)
{
    const int64_t target = *time;
    if (s->sh.duration < target)
        return zoflvd_fail(3210);
    int64_t pos = 0;
    if (zoflv_file_getpos(&s->mfal, s->fh, &pos) != 0)
        return zoflvd_fail(3211);
    const zoflv_block buf = zoflv_alloc(ZOFLVD_SCAN_WINDOW);
    if (!buf) {
        __android_log_print(ANDROID_LOG_ERROR, ZOFLVD_LOG_TAG, "malloc failed!, [%s: %d]",
                            ZOFLVD_SOURCE, 3212);
        return ZOFLV_ERR_FAIL;
    }
    if (s->sh.duration <= 0)
        return zoflvd_fail(3213);
    ZOFLVD_TAG start = {};
    if (find_start_tag(s, target, buf.get(), &start) != ZOFLV_OK)
        return ZOFLV_ERR_FAIL;
    if (zoflv_file_setpos(&s->mfal, s->fh, start.pos) != 0)
        return zoflvd_fail(3214);
    ZOFLVD_CRAWL crawl;
    if (crawl_to_time(s, start, target, mode, &crawl) != ZOFLV_OK)
        return ZOFLV_ERR_FAIL;
    return land(&crawl, out_time);
}
