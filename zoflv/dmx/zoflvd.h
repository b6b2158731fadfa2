// SPDX-License-Identifier: Apache-2.0
/// @file
/// The demuxer's interface: open an FLV file, ask what is in it, read and seek its streams.
///
/// Times are signed 64-bit counts of 100 ns, positions and sizes bytes. Operations return a result
/// code of zoflv_err.h; a null or wrong handle gives -1. The demuxer holds no lock and no global
/// state: opens, queries and the deletion of one ZOFLVD are the caller's to serialise, each ZOFLVDS
/// may be read on a thread of its own.
#pragma once

#include "zoflv/dmx/zocmn_mfal.h"
#include "zoflv/dmx/zoflv_err.h"
#include "zoflv/dmx/zoflv_types.h"

#include <cstdint>

// What is declared here is what the shared library exports.
#pragma GCC visibility push(default)

struct ZOFLVD;  ///< demuxer handle, one per file
struct ZOFLVDS; ///< stream handle, one per stream being read

/// Streams in a file at most: one audio, one video.
constexpr int ZOFLV_MAX_STREAMS = 2;

/// A byte range of the file.
struct ZOFLVD_REGION {
    uint32_t type; ///< 0: tag data
    int64_t pos;
    int64_t size; ///< may be negative when a metadata tag claims more than the file holds
};

/// What the open found. Cleared and filled by zoflvd_create().
struct ZOFLVD_INFO {
    int32_t strm_cnt;
    int32_t aud_cnt;
    int32_t vid_cnt;
    int32_t strm_type[ZOFLV_MAX_STREAMS]; ///< ZOFLV_TAG_AUDIO or ZOFLV_TAG_VIDEO per stream
    uint32_t codec[ZOFLV_MAX_STREAMS];    ///< ZOFLV_FOURCC_... per stream
    int64_t duration;                     ///< 100-ns units, 0 when unknown
    int32_t seekable;                     ///< always 1
    int32_t region_cnt;                   ///< entries used in `region`
    ZOFLVD_REGION region[16];
};

struct ZOFLVD_INFO_VID {
    int32_t strm_indx;
    uint32_t fourcc;      ///< codec code, 0 when unknown
    int32_t max_frm_size; ///< bytes of one 4:2:0 picture
    int32_t width;        ///< pixels
    int32_t height;       ///< pixels
    int32_t frm_cnt;      ///< frames in the file, by the metadata
    int32_t valid;        ///< 1 when the codec was recognised
    int32_t byte_rate;    ///< average bytes per second
    int32_t frame_rate;   ///< frames per second, truncated
};

struct ZOFLVD_INFO_AUD {
    int32_t strm_indx;
    uint32_t fourcc;      ///< codec code, 0 when unknown
    int32_t max_frm_size; ///< bytes
    int32_t sample_rate;  ///< Hz
    int32_t bits_per_sample;
    int32_t channels;
    int32_t valid;     ///< 1 when the codec was recognised
    int32_t byte_rate; ///< average bytes per second
    int32_t bit_rate;  ///< bits per second; MPEG audio only, else 0
};

/// Opens a file: validates its header, finds its streams, decodes the metadata and the codec
/// headers.
/// @param mfal      the file-access record; copied, its context stays the caller's and must outlive
///                  the handle and its streams
/// @param duration  a duration the caller knows, 100-ns units, or 0; wins over the metadata's
/// @param info      filled; not to be used after a failure
/// @param err       receives the code; may be null. Judge success by the handle alone: a null
///                  argument and a file without streams fail with code 0. Else -1 fewer than 4
///                  bytes; -3 signature, version or a codec header; -5 no memory; -6 no file or no
///                  header.
/// @return the handle, or null
ZOFLVD* zoflvd_create(_ZOCMN_MFAL* mfal, const int64_t* duration, ZOFLVD_INFO* info, int* err);

/// Frees the handle; close its streams first. Nothing for a null or wrong handle.
void zoflvd_delete(ZOFLVD* h);

/// The file's information; its duration grows when a stream with a longer one is opened. 0 or -1.
int zoflvd_get_info(ZOFLVD* h, ZOFLVD_INFO* out);

/// A stream's information, read as video or as audio whatever the stream's type. 0 or -1.
int zoflvd_get_info_vid(ZOFLVD* h, int strm_indx, ZOFLVD_INFO_VID* out);
int zoflvd_get_info_aud(ZOFLVD* h, int strm_indx, ZOFLVD_INFO_AUD* out);

/// A stream's codec-specific data: AVC the parameter sets after start codes, MPEG audio and codecs
/// without a reader of their own the first tag's bytes, others none.
/// @param buf   receives the bytes; null: only the size is given
/// @param size  receives the number of bytes; may be null
/// @return 0; -1 for a wrong handle or index; -3 for an inconsistent record
int zoflvd_get_format(ZOFLVD* h, int strm_indx, void* buf, int* size);
int zoflvds_get_format(ZOFLVDS* s, void* buf, int* size);

/// A stream's keyframe index as a table. Built from the metadata alone.
/// @param buf       receives ZOFLVD_IDX_ENTRY records, at any address; null: only the sizes are given
/// @param buf_size  bytes at `buf`
/// @param out_size  receives the bytes needed; may be null
/// @param out_cnt   receives the number of entries; may be null
/// @return 0; -1; -2 for an empty index or no video stream; -4 when `buf` is too small; the code of
///         a failed open of a temporary stream
int zoflvd_get_idx_table(ZOFLVD* h, int strm_indx, void* buf, int buf_size, int* out_size,
                         int* out_cnt);
int zoflvds_get_idx_table(ZOFLVDS* s, void* buf, int buf_size, int* out_size, int* out_cnt);

/// Opens a stream with a file handle, a keyframe index and codec data of its own, before its first
/// frame.
/// @param err  receives the code; may be null; left alone for a wrong handle or index. -5 no
///             memory; -6 the file could not be opened or positioned, or its first keyframe not
///             read
/// @return the stream handle, or null
ZOFLVDS* zoflvds_open(ZOFLVD* h, int strm_indx, int* err);

/// Frees a stream handle and closes its file. Nothing for a null or wrong handle.
void zoflvds_close(ZOFLVDS* s);

/// As zoflvd_get_info_vid() and zoflvd_get_info_aud(), from the stream's own record. 0 or -1.
int zoflvds_get_info_vid(ZOFLVDS* s, ZOFLVD_INFO_VID* out);
int zoflvds_get_info_aud(ZOFLVDS* s, ZOFLVD_INFO_AUD* out);

/// Reads the stream's next frame: the tag's data without the FLV codec header, AVC as NAL units
/// after start codes 00 00 00 01.
/// @param buf        receives the frame; null: only its length is given and the frame stays the
///                   next
/// @param buf_size   bytes at `buf`
/// @param frm_len    receives the frame's length in bytes; required
/// @param time       receives the frame's time, 100-ns units; may be null
/// @param next_time  receives the time of the stream's next frame, of the last frame its own; for a
///                   length query the frame's own; may be null
/// @return 0; 1 at the end of the stream and for every failure once the frame's tag was located; -1
///         for a wrong handle or a null `frm_len`, a file position that has moved under a pending
///         frame, or a failed look ahead after a non-AVC frame; -4 when a non-AVC frame did not
///         fit and was dropped, `frm_len` then being a size that suffices
int zoflvds_get_frm(ZOFLVDS* s, uint8_t* buf, int buf_size, int* frm_len, int64_t* time,
                    int64_t* next_time);

/// Positions a stream so that its next frame is a keyframe chosen by time and mode. Every seek but
/// one with a bad mode ends a pending length query; after a failed one the next read goes on from
/// wherever the search stopped.
/// @param time      100-ns units; 0: the first frame, whatever the mode; null: from the current
///                  frame, ZOFLV_SEEK_NEXT and ZOFLV_SEEK_BACK only
/// @param out_time  receives the keyframe's time; may be null
/// @param mode      ZOFLV_SEEK_...
/// @return 0; 1 no keyframe in that direction, and every failure without a time; -1 wrong handle or
///         mode; -3 the keyframe could not be found or confirmed; -6 the file could not be
///         positioned
int zoflvds_seek(ZOFLVDS* s, const int64_t* time, int64_t* out_time, int mode);

#pragma GCC visibility pop
