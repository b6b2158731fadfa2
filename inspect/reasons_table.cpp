// SPDX-License-Identifier: Apache-2.0
#include "inspect/reasons.h"

#include <iterator>

namespace zoflv_inspect {

namespace {

constexpr auto DAMAGE = ReasonKind::DAMAGE;
constexpr auto END = ReasonKind::END;
constexpr auto LIMIT = ReasonKind::LIMIT;
constexpr auto STORAGE = ReasonKind::STORAGE;
constexpr auto MEMORY = ReasonKind::MEMORY;
constexpr auto MISUSE = ReasonKind::MISUSE;
constexpr auto CAUSE = ReasonRank::CAUSE;
constexpr auto DETAIL = ReasonRank::DETAIL;
constexpr auto ECHO = ReasonRank::ECHO;

constexpr char mfal[] = "libextractor/mfal/zocmn_mfal_android_q";
constexpr char plugin[] = "libextractor/zoflv_extractor";
constexpr char dmx[] = "zoflv/dmx/zoflvd";
constexpr char bits[] = "zoflv/dmx/zoflvd_bs";
constexpr char crawl[] = "zoflv/dmx/zoflvd_crawl";
constexpr char metadata[] = "zoflv/dmx/zoflvd_metadata";
constexpr char rdbuf[] = "zoflv/dmx/zoflvd_rdbuf";
constexpr char sh[] = "zoflv/dmx/zoflvd_sh";

constexpr char no_handle[] = "file access was called without its record or handle";
constexpr char no_room[] = "file access was called without a place for the result";
constexpr char header_cut[] = "a tag header is cut";
constexpr char position[] = "the file cannot be positioned";
constexpr char tell[] = "the file's position cannot be told";
constexpr char audio_header[] = "the first MP3 frame's header is cut or invalid";
constexpr char aac_cut[] = "the AAC configuration is cut";
constexpr char vp6_cut[] = "the first VP6 frame's header is cut";
constexpr char no_memory[] = "out of memory";
constexpr char past_bits[] = "a header's bits end before all of it was read";
constexpr char body_short[] = "a value reaches past the end of its tag";
constexpr char track_order[] = "a track was used out of order";

constexpr Reason table[] = {
    // ---- Checks, by source and number
    {mfal, 102, nullptr, MISUSE, CAUSE, no_handle},
    {mfal, 134, nullptr, MISUSE, CAUSE, no_handle},
    {mfal, 151, nullptr, MISUSE, CAUSE, no_room},
    {mfal, 152, nullptr, MISUSE, CAUSE, no_handle},
    {mfal, 165, nullptr, MISUSE, CAUSE, no_handle},
    {mfal, 174, nullptr, MISUSE, CAUSE, no_room},
    {mfal, 175, nullptr, MISUSE, CAUSE, no_handle},
    {mfal, 188, nullptr, MISUSE, CAUSE, no_room},
    {mfal, 189, nullptr, MISUSE, CAUSE, no_handle},
    {mfal, 203, nullptr, MISUSE, CAUSE, no_room},
    {mfal, 204, nullptr, MISUSE, CAUSE, no_handle},
    {mfal, 224, nullptr, MISUSE, CAUSE, no_room},
    {mfal, 225, nullptr, MISUSE, CAUSE, no_handle},
    {mfal, 239, nullptr, MISUSE, CAUSE, no_handle},
    {mfal, 240, nullptr, MISUSE, CAUSE, no_room},

    {plugin, 955, nullptr, MISUSE, CAUSE, track_order},
    {plugin, 963, nullptr, MISUSE, CAUSE, "the track's format has no maximum input size"},
    {plugin, 981, nullptr, MISUSE, CAUSE, track_order},
    {plugin, 997, nullptr, MISUSE, CAUSE, track_order},
    {plugin, 1079, nullptr, MISUSE, CAUSE, "a frame was read without a buffer"},

    {dmx, 127, nullptr, DAMAGE, CAUSE, "the file ends within its header"},
    {dmx, 140, nullptr, DAMAGE, CAUSE, "the file ends within its header"},
    {dmx, 146, nullptr, DAMAGE, CAUSE, "the file ends within its header"},
    {dmx, 291, nullptr, DAMAGE, CAUSE, header_cut},
    {dmx, 297, nullptr, DAMAGE, CAUSE, header_cut},
    {dmx, 303, nullptr, DAMAGE, CAUSE, header_cut},
    {dmx, 309, nullptr, DAMAGE, CAUSE, header_cut},
    {dmx, 320, nullptr, DAMAGE, CAUSE, header_cut},
    {dmx, 385, nullptr, DAMAGE, ECHO, "the file's header cannot be used"},
    {dmx, 397, nullptr, DAMAGE, CAUSE,
     "neither the header's flags nor the first tags name a stream"},
    {dmx, 615, nullptr, MISUSE, CAUSE, no_room},
    {dmx, 620, nullptr, MISUSE, CAUSE, "no such stream"},
    {dmx, 662, nullptr, STORAGE, CAUSE, tell},
    {dmx, 671, nullptr, LIMIT, CAUSE, "an AVC frame is larger than the buffer for it"},
    {dmx, 691, nullptr, DAMAGE, CAUSE, "the file ends within an AVC frame"},
    {dmx, 701, nullptr, DAMAGE, CAUSE, "an AVC frame ends with a NAL length and no NAL unit"},
    {dmx, 711, nullptr, LIMIT, CAUSE, "an AVC frame is larger than the buffer for it"},
    {dmx, 720, nullptr, DAMAGE, CAUSE, "the file ends within an AVC frame"},
    {dmx, 732, nullptr, STORAGE, CAUSE, position},
    {dmx, 743, nullptr, STORAGE, CAUSE, tell},
    {dmx, 751, nullptr, STORAGE, CAUSE, position},
    {dmx, 789, nullptr, STORAGE, CAUSE, tell},
    {dmx, 793, nullptr, MISUSE, CAUSE, "the file was moved between two frames"},
    {dmx, 804, nullptr, STORAGE, CAUSE, tell},
    {dmx, 830, nullptr, DAMAGE, CAUSE, "the file ends before the size that is to follow a frame"},
    {dmx, 859, nullptr, MISUSE, CAUSE, "the stream is not open"},
    {dmx, 865, nullptr, DAMAGE, ECHO, "the tag after a frame cannot be looked for"},
    {dmx, 871, nullptr, STORAGE, CAUSE, tell},
    {dmx, 912, nullptr, STORAGE, CAUSE, position},
    {dmx, 916, nullptr, DAMAGE, ECHO, "the tag after a frame cannot be looked for"},
    {dmx, 952, nullptr, STORAGE, CAUSE, tell},
    {dmx, 960, nullptr, STORAGE, CAUSE, position},
    {dmx, 967, nullptr, DAMAGE, CAUSE, "the file ends within a video tag's header"},
    {dmx, 974, nullptr, DAMAGE, CAUSE, "the file ends within a video tag's header"},
    {dmx, 982, nullptr, END, CAUSE, "an AVC tag without payload ends the stream here"},
    {dmx, 992, nullptr, MEMORY, CAUSE, no_memory},
    {dmx, 998, nullptr, DAMAGE, CAUSE, "an AVC configuration inside the stream is cut"},
    {dmx, 1004, nullptr, DAMAGE, CAUSE, "an AVC configuration inside the stream cannot be read"},
    {dmx, 1018, nullptr, DAMAGE, ECHO, "an AVC frame's NAL units cannot be read"},
    {dmx, 1040, nullptr, STORAGE, CAUSE, position},
    {dmx, 1050, nullptr, DAMAGE, ECHO, "the tag after a frame cannot be looked for"},
    {dmx, 1060, nullptr, STORAGE, CAUSE, position},
    {dmx, 1108, nullptr, MISUSE, CAUSE, "a frame is to be read of which the size was not asked"},
    {dmx, 1112, nullptr, STORAGE, CAUSE, tell},
    {dmx, 1123, nullptr, DAMAGE, CAUSE, "no further tag of the stream was found"},
    {dmx, 1132, nullptr, DAMAGE, CAUSE, "a tag of 0 or 1 byte ends the stream here"},
    {dmx, 1146, nullptr, DAMAGE, ECHO, "an AVC frame cannot be read"},
    {dmx, 1190, nullptr, STORAGE, CAUSE, position},
    {dmx, 1196, nullptr, DAMAGE, CAUSE, "the file ends within a frame"},
    {dmx, 2161, nullptr, MISUSE, CAUSE, "no such stream"},
    {dmx, 2413, nullptr, MISUSE, CAUSE, "no such stream"},
    {dmx, 2578, nullptr, STORAGE, CAUSE, "the file is empty, or its size cannot be told"},
    {dmx, 2595, nullptr, STORAGE, CAUSE, position},
    {dmx, 2602, nullptr, STORAGE, CAUSE, position},
    {dmx, 3001, nullptr, STORAGE, CAUSE, tell},
    {dmx, 3002, nullptr, STORAGE, CAUSE, position},
    {dmx, 3003, nullptr, DAMAGE, CAUSE, "the index's first offset is past the end of the file"},
    {dmx, 3004, nullptr, END, CAUSE, "the stream has no keyframe index"},
    {dmx, 3005, nullptr, MISUSE, CAUSE, "the keyframe index contradicts its own count"},
    {dmx, 3006, nullptr, MISUSE, CAUSE, "no such stream"},
    {dmx, 3007, nullptr, END, CAUSE, "only video has a keyframe index"},
    {dmx, 3101, nullptr, DAMAGE, CAUSE, "the file cannot be read where tags are looked for"},
    {dmx, 3102, nullptr, STORAGE, CAUSE, "what looks like a tag cannot be read"},
    {dmx, 3201, nullptr, STORAGE, CAUSE, position},
    {dmx, 3202, nullptr, END, CAUSE, "no tag was found from the estimated place to the end"},
    {dmx, 3203, nullptr, END, CAUSE, "the search ran into the end of the tags"},
    {dmx, 3204, nullptr, STORAGE, CAUSE, "the file cannot be left at the keyframe that was found"},
    {dmx, 3205, nullptr, MISUSE, CAUSE, "the search cannot begin"},
    {dmx, 3206, nullptr, MISUSE, CAUSE, "the search cannot turn round"},
    {dmx, 3207, nullptr, MISUSE, CAUSE, "the search cannot begin"},
    {dmx, 3208, nullptr, STORAGE, CAUSE, tell},
    {dmx, 3209, nullptr, STORAGE, CAUSE, position},
    {dmx, 3210, nullptr, END, CAUSE, "the time is later than the duration"},
    {dmx, 3211, nullptr, STORAGE, CAUSE, tell},
    {dmx, 3212, nullptr, MEMORY, CAUSE, no_memory},
    {dmx, 3213, nullptr, DAMAGE, CAUSE,
     "the file tells no duration, without which no place can be estimated"},
    {dmx, 3214, nullptr, STORAGE, CAUSE, position},
    {dmx, 3301, nullptr, STORAGE, CAUSE, position},
    {dmx, 3302, nullptr, DAMAGE, CAUSE, "the keyframe that the index names is cut"},
    {dmx, 3303, nullptr, DAMAGE, CAUSE, "there is no tag near the offset that the index names"},
    {dmx, 3304, nullptr, DAMAGE, CAUSE, "the index names an offset past the end of the file"},
    {dmx, 3305, nullptr, MISUSE, CAUSE, "no such seek mode"},
    {dmx, 3306, nullptr, STORAGE, CAUSE, position},

    {bits, 3001, nullptr, DAMAGE, DETAIL, past_bits},
    {bits, 3002, nullptr, MISUSE, DETAIL, "a count of bits below 0 or above 32"},
    {bits, 3003, nullptr, DAMAGE, DETAIL, past_bits},
    {bits, 3004, nullptr, DAMAGE, DETAIL, past_bits},
    {bits, 3005, nullptr, DAMAGE, DETAIL, past_bits},
    {bits, 3006, nullptr, DAMAGE, DETAIL, "a header has a code of more than 32 bits"},

    {crawl, 3001, nullptr, MISUSE, CAUSE, "the search cannot keep its place"},
    {crawl, 3002, nullptr, END, CAUSE, "the search ran into the end of the tags"},
    {crawl, 3003, nullptr, DAMAGE, CAUSE, "the search met a tag that is cut"},
    {crawl, 3004, nullptr, MISUSE, CAUSE, "the search has no answer yet"},
    {crawl, 3005, nullptr, STORAGE, CAUSE, position},
    {crawl, 3006, nullptr, MISUSE, CAUSE, "neither an audio nor a video stream"},

    {metadata, 3001, nullptr, LIMIT, DETAIL,
     "the metadata holds more than 64 objects in each other"},
    {metadata, 3002, nullptr, DAMAGE, DETAIL, "a number of the metadata is cut"},
    {metadata, 3003, nullptr, MEMORY, DETAIL, no_memory},

    {rdbuf, 108, nullptr, DAMAGE, DETAIL, "a size is negative"},
    {rdbuf, 112, nullptr, DAMAGE, DETAIL, body_short},
    {rdbuf, 157, nullptr, DAMAGE, DETAIL, body_short},
    {rdbuf, 166, nullptr, DAMAGE, DETAIL, body_short},
    {rdbuf, 200, nullptr, DAMAGE, DETAIL, body_short},
    {rdbuf, 217, nullptr, DAMAGE, DETAIL, body_short},
    {rdbuf, 230, nullptr, DAMAGE, DETAIL, body_short},
    {rdbuf, 245, nullptr, DAMAGE, DETAIL, body_short},

    {sh, 3001, nullptr, MEMORY, CAUSE, no_memory},
    {sh, 3002, nullptr, MEMORY, CAUSE, no_memory},
    {sh, 3003, nullptr, DAMAGE, CAUSE, "the file ends within the stream's first tag"},
    {sh, 3004, nullptr, DAMAGE, CAUSE,
     "the header announces a stream that none of the first 100 tags belongs to"},
    {sh, 3101, nullptr, DAMAGE, CAUSE, "the AVC configuration is cut"},
    {sh, 3102, nullptr, DAMAGE, CAUSE, "the AVC configuration is cut"},
    {sh, 3103, nullptr, DAMAGE, CAUSE, "the AVC configuration is cut"},
    {sh, 3104, nullptr, DAMAGE, CAUSE, "an AVC parameter set is cut"},
    {sh, 3105, nullptr, LIMIT, CAUSE, "an AVC parameter set is longer than 32,767 bytes"},
    {sh, 3106, nullptr, DAMAGE, CAUSE, "an AVC parameter set is cut"},
    {sh, 3107, nullptr, LIMIT, ECHO, "the AVC sequence parameter set cannot be read"},
    {sh, 3108, nullptr, DAMAGE, CAUSE, "an AVC tag is shorter than its header"},
    {sh, 3109, nullptr, DAMAGE, ECHO, "the AVC configuration cannot be read"},
    {sh, 3110, nullptr, DAMAGE, ECHO, "the AVC configuration cannot be read"},
    {sh, 3111, nullptr, DAMAGE, CAUSE,
     "the AVC sequence parameter set has a picture order cycle of more than 255"},
    {sh, 3112, nullptr, DAMAGE, CAUSE,
     "the AVC sequence parameter set has a chroma format above 3"},
    {sh, 3113, nullptr, DAMAGE, CAUSE,
     "the AVC sequence parameter set gives no usable picture size"},
    {sh, 3201, nullptr, DAMAGE, CAUSE, "a video header gives no picture size"},
    {sh, 3202, nullptr, DAMAGE, CAUSE, "the first H.263 picture's header cannot be read"},
    {sh, 3203, nullptr, DAMAGE, CAUSE, "the first screen video frame's header is cut"},
    {sh, 3204, nullptr, DAMAGE, CAUSE, vp6_cut},
    {sh, 3205, nullptr, DAMAGE, CAUSE, vp6_cut},
    {sh, 3206, nullptr, DAMAGE, CAUSE, vp6_cut},
    {sh, 3207, nullptr, DAMAGE, CAUSE, vp6_cut},
    {sh, 3301, nullptr, DAMAGE, CAUSE, "the first MP3 tag has no frame sync"},
    {sh, 3302, nullptr, MISUSE, CAUSE, "the MP3 frame sync cannot be gone back to"},
    {sh, 3303, nullptr, MEMORY, CAUSE, no_memory},
    {sh, 3304, nullptr, DAMAGE, CAUSE, audio_header},
    {sh, 3305, nullptr, DAMAGE, CAUSE, audio_header},
    {sh, 3306, nullptr, DAMAGE, CAUSE, audio_header},
    {sh, 3307, nullptr, DAMAGE, CAUSE, audio_header},
    {sh, 3308, nullptr, DAMAGE, CAUSE, audio_header},
    {sh, 3309, nullptr, DAMAGE, CAUSE, audio_header},
    {sh, 3401, nullptr, DAMAGE, CAUSE, "the first AAC tag has one byte only"},
    {sh, 3402, nullptr, DAMAGE, CAUSE, "the first AAC tag is neither a configuration nor a frame"},
    {sh, 3403, nullptr, DAMAGE, CAUSE, aac_cut},
    {sh, 3404, nullptr, DAMAGE, CAUSE, aac_cut},
    {sh, 3405, nullptr, DAMAGE, CAUSE, aac_cut},
    {sh, 3406, nullptr, DAMAGE, CAUSE, aac_cut},
    {sh, 3501, nullptr, DAMAGE, CAUSE, "a video tag is empty"},
    {sh, 3502, nullptr, LIMIT, CAUSE, "the video codec is none that the demuxer knows"},
    {sh, 3503, nullptr, STORAGE, CAUSE, position},
    {sh, 3504, nullptr, DAMAGE, CAUSE,
     "neither the video's first tags nor the metadata tell a picture size"},
    {sh, 3601, nullptr, DAMAGE, CAUSE, "the first audio tag is empty"},
    {sh, 3602, nullptr, DAMAGE, ECHO, "the audio header cannot be read"},
    {sh, 3603, nullptr, LIMIT, CAUSE, "the sound format (14 or 15) is none that the demuxer reads"},
    {sh, 3604, nullptr, LIMIT, ECHO, "the audio header cannot be read"},
    {sh, 3605, nullptr, DAMAGE, ECHO, "the audio header cannot be read"},

    // ---- Other lines, by log tag and beginning
    {"zoflvd", 0, "read size error.", DAMAGE, CAUSE, "the file is shorter than an FLV header"},
    {"zoflvd", 0, "ERR: wrong flv signature, exit.", DAMAGE, CAUSE,
     "it does not begin with \"FLV\""},
    {"zoflvd", 0, "ERR: wrong file format version (", LIMIT, CAUSE, "its FLV version is not 1"},
    {"zoflvd", 0, "malloc err.", MEMORY, CAUSE, no_memory},
    {"zoflvd", 0, "read err.", DAMAGE, DETAIL,
     "the file ends among the tags that are looked at for streams"},
    {"zoflvd", 0, "ERR: invalid argument, exit.", MISUSE, CAUSE, "an argument is missing"},
    {"zoflvd", 0, "fopen() failed", STORAGE, CAUSE, "the file cannot be opened"},
    {"zoflvd", 0, "zoflvd_create() failed", DAMAGE, ECHO, "the file cannot be opened"},
    {"zoflvd", 0, "info is null", MISUSE, CAUSE, no_room},
    {"zoflvd", 0, "invalid strm_indx.", MISUSE, CAUSE, "no such stream"},
    {"zoflvd", 0, "ZOFLV_ERR_FILEIO.", STORAGE, CAUSE, tell},
    {"zoflvd", 0, "tag of stream type ", DAMAGE, DETAIL,
     "the header announces a stream that none of the first 100 tags belongs to"},
    {"zoflvd", 0, "zoflvds_open() failed", DAMAGE, ECHO, "the stream cannot be opened"},
    {"zoflvd", 0, "err: frame data fp is wrong!", MISUSE, CAUSE,
     "the file was moved between two frames"},
    {"zoflvd", 0, "h264_frm_len_size error.", DAMAGE, CAUSE,
     "there is no AVC configuration, without which no frame can be read"},
    {"zoflvd", 0, "1st position of idx talbe is invalid", DAMAGE, CAUSE,
     "the index's first offset is negative"},
    {"zoflvd", 0, "zoflvd_kf_build_metadata() failed", DAMAGE, ECHO, "the index cannot be used"},
    {"zoflvd", 0, "frm search: ", DAMAGE, ECHO, "no tag was found in the bytes"},
    {"zoflvd", 0, "zoflvds_seek_bytestream_tag() failed", DAMAGE, ECHO,
     "no tag was found in the bytes"},
    {"zoflvd", 0, "zoflvds_validate_keytag() failed", DAMAGE, ECHO,
     "what the index names could not be confirmed"},
    {"zoflvd", 0, "fsetpos() failed", STORAGE, CAUSE, position},
    {"zoflvd", 0, "zoflvd_mblk_elem_find() failed", END, CAUSE,
     "the index has no entry for the time"},
    {"zoflvd", 0, "zoflvds_seek(): invalid mode arg", MISUSE, CAUSE, "no such seek mode"},
    {"zoflvd_bs", 0, "bitstream buffer is out of bounds", DAMAGE, DETAIL, past_bits},
    {"zoflvd_mblk", 0, "[index] err: meta_array index already built!", MISUSE, CAUSE,
     "the index was built twice"},
    {"zoflvd_metadata", 0, "fsetpos() failed", STORAGE, DETAIL, position},
    {"zoflvd_metadata", 0, "zoflvd_tag_read() failed", DAMAGE, DETAIL, "there is no first tag"},
    {"zoflvd_metadata", 0, "read_metadata() failed", DAMAGE, DETAIL, "the metadata cannot be read"},
    {"zoflvd_metadata", 0, "metadata tag has invalid data_size ", DAMAGE, DETAIL,
     "the metadata tag is empty"},
    {"zoflvd_metadata", 0, "first byte of \"onMetaData\"", DAMAGE, DETAIL,
     "the first script tag does not begin with a name"},
    {"zoflvd_metadata", 0, "read_property_header() failed", DAMAGE, DETAIL,
     "a property of the metadata cannot be read"},
    {"zoflvd_metadata", 0, "array count is too large. malloc() failed", DAMAGE, DETAIL,
     "the metadata claims an absurd number of index entries"},
    {"zoflvd_metadata", 0, "malloc() failed", MEMORY, DETAIL, no_memory},
    {"zoflvd_metadata", 0, "invalid ecma type ", DAMAGE, DETAIL,
     "the metadata holds a value of an unknown type"},
    {"zoflvd_rdbuf", 0, "zoflvd_rdbuf_init() failed", DAMAGE, DETAIL, "the file ends within a tag"},
    {"zoflvd_rdbuf", 0, "invalid string len ", DAMAGE, DETAIL,
     "a name in the metadata is longer than 32,767 bytes"},
    {"zoflvd_rdbuf", 0, "string too large (", LIMIT, DETAIL,
     "a name in the metadata is longer than 32 bytes"},
    {"zoflvd_rdbuf", 0, "failed to read string", DAMAGE, DETAIL, "a name in the metadata is cut"},
    {"zoflvd_sh", 0, "h264 header parsing fail: first byte of sps", LIMIT, CAUSE,
     "the AVC sequence parameter set does not begin with the byte 0x67, the only one that is read"},
    {"zoflvd_sh", 0, "zoflvd vp6: not an I-Frame", DAMAGE, DETAIL,
     "the first VP6 frame is no keyframe"},
    {"zoflvd_sh", 0, "sh_audio() failed", DAMAGE, ECHO, "the audio header cannot be read"},
    {"zoflvd_sh", 0, "sh_init() failed", DAMAGE, ECHO, "the stream's header cannot be read"},
};

} // namespace

ReasonTable reasons()
{
    return {table, std::size(table)};
}

} // namespace zoflv_inspect
