// SPDX-License-Identifier: Apache-2.0
#include "zoflv/dmx/zoflvds_priv.h"

#include "zoflv/dmx/zoflv_conv.h"
#include "zoflv/dmx/zoflv_mem.h"
#include "zoflv/dmx/zoflv_num.h"
#include "zoflv/dmx/zoflvd_avc.h"
#include "zoflv/dmx/zoflvd_log.h"
#include "zoflv/dmx/zoflvd_rdbuf.h"

#include <cstring>

namespace {

// Where a frame goes and what is told of it. `buf` null: only its length is asked for.
struct FrameOut {
    uint8_t* buf;
    int buf_size;
    int* frm_len;
    int64_t* next_time;
};

bool is_at_data(const ZOFLVD_TAG& tag, int64_t pos)
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
    if (!is_at_data(s->next_tag, pos))
        return zoflvd_fail(793, ZOFLV_EOF);
    s->cur_tag = s->next_tag;
    s->next_tag.found = 0;
    return ZOFLV_OK;
}

// The tag of an earlier length query still has to be read: the file must be at its data.
int check_pending_tag(ZOFLVDS* s)
{
    if (s->cur_tag.found != 1)
        return zoflvd_fail(1108);
    int64_t pos = 0;
    if (zoflv_file_getpos(&s->mfal, s->fh, &pos) != 0)
        return zoflvd_fail(1112);
    if (!is_at_data(s->cur_tag, pos))
        return zoflvd_log_error("err: frame data fp is wrong!");
    return ZOFLV_OK;
}

// Ends the stream: every later read finds no tag.
void move_to_end(ZOFLVDS* s)
{
    zoflv_file_setpos(&s->mfal, s->fh, s->sh.file_size);
    s->fetch_tag = 1;
}

// Drops the frame: the next read goes on with the tag after it.
void move_after_tag(ZOFLVDS* s)
{
    int64_t after = 0;
    if (zoflv_pos_add(s->cur_tag.pos, int64_t{s->cur_tag.data_size} + ZOFLV_TAG_OVERHEAD, &after))
        zoflv_file_setpos(&s->mfal, s->fh, after);
    s->fetch_tag = 1;
}

int drop_frame(ZOFLVDS* s, int check)
{
    zoflvd_fail(check);
    move_after_tag(s);
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
    move_after_tag(s);
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

// Copies one NAL unit after a start code, to `written` bytes into the buffer; without a buffer
// skips it. False with the line of the failure.
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
    int64_t after = 0;
    if (!zoflv_pos_add(data, s->cur_tag.data_size, &after) ||
        zoflv_file_setpos(&s->mfal, s->fh, after) != 0)
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

// With the search inlined, whose limits are then known: a twentieth of a small frame's instructions.
[[gnu::flatten]] int zoflvds_get_frm_finalyze(ZOFLVDS* s, int, int64_t* next_time)
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
