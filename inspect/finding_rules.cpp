// SPDX-License-Identifier: Apache-2.0
#include "inspect/finding_rules.h"

#include <iterator>

namespace zoflv_inspect {

namespace {

constexpr Level NOTICE = Level::NOTICE;
constexpr Level WARNING = Level::WARNING;

constexpr uint8_t NOTHING = SHOWN_NOTHING;
constexpr uint8_t REFUSED = SHOWN_REFUSED;
constexpr uint8_t NO_TRACK = SHOWN_NO_TRACK;
constexpr uint8_t FRAMES = SHOWN_FRAMES;
constexpr uint8_t SEEK = SHOWN_SEEK;
/// What becomes of tags that are not where the one before leads to.
constexpr uint8_t LOST_WAY = REFUSED | NO_TRACK | FRAMES | SEEK;

constexpr bool CURABLE = true;
constexpr bool LASTING = false;

constexpr char REPAIR[] = "`zoflv repair` mends it.";
constexpr char REPAIR_OR_RECORD[] =
    "`zoflv repair` mends it; better fix the program that wrote it.";
constexpr char CONVERT_AUDIO[] = "Convert the audio to AAC or MP3.";
constexpr char ENCODE_AGAIN[] = "Encode the video again, or record it again with other settings.";
constexpr char NOTHING_TO_DO[] = "Nothing needs to be done.";

// In the order of Rule.
constexpr FindingRule RULES[] = {
    {Rule::FILE_READ_FAILED, "file.read_failed", WARNING, LOST_WAY, LASTING,
     "the file could not be read to its end, and what comes after was not looked at",
     "Copy the file to a sound disk, or fetch it again.", nullptr},
    {Rule::FILE_EMPTY, "file.empty", WARNING, REFUSED, LASTING, "the file has no bytes",
     "Record or fetch the file again.", nullptr},
    {Rule::FILE_ID3, "file.id3", WARNING, REFUSED, CURABLE,
     "an ID3 tag comes before the FLV header, and the file is not taken for FLV", REPAIR, nullptr},
    {Rule::FILE_NO_HEADER, "file.no_header", WARNING, REFUSED, CURABLE,
     "the file does not begin with an FLV header, and is not taken for FLV",
     "Check that it is an FLV file; `zoflv repair` mends it where tags follow.", nullptr},
    {Rule::HEADER_CUT, "header.cut", WARNING, REFUSED, LASTING,
     "the file is shorter than an FLV header", "Record or fetch the file again.", nullptr},
    {Rule::HEADER_VERSION, "header.version", WARNING, REFUSED, CURABLE,
     "the header's version is not 1, and the file is not opened", REPAIR,
     "files of another version are refused"},
    {Rule::HEADER_DATA_OFFSET, "header.data_offset", WARNING, LOST_WAY, CURABLE,
     "the header says that the first tag is where it is not, and reading begins at the wrong byte",
     REPAIR, nullptr},
    {Rule::HEADER_LONGER, "header.longer", NOTICE, NOTHING, CURABLE,
     "the header is longer than the usual 9 bytes, which does no harm here", REPAIR, nullptr},
    {Rule::FILE_NO_MEDIA, "file.no_media", WARNING, REFUSED | NO_TRACK, LASTING,
     "the file has no audio and no video tag, and nothing can be played", "Record it again.",
     nullptr},
    {Rule::FILE_NO_FRAMES, "file.no_frames", WARNING, REFUSED | NO_TRACK, LASTING,
     "the file has no frame, only configurations, and nothing can be played", "Record it again.",
     nullptr},
    {Rule::HEADER_ABSENT, "header.absent", WARNING, REFUSED, CURABLE,
     "the header announces a stream that the file does not have, and the file is not opened",
     REPAIR, "each announced stream must be there"},
    {Rule::HEADER_LATE, "header.late", WARNING, REFUSED, LASTING,
     "the first tag of an announced stream is not among the first 100 tags, and the file is not "
     "opened",
     "`zoflv repair` puts audio and video in the order of their times; a stream that begins so "
     "late by "
     "its times too has to be left out with a muxer.",
     "streams are looked for in the first 100 tags"},
    {Rule::HEADER_HIDES, "header.hides", WARNING, NO_TRACK, CURABLE,
     "the header does not announce a stream that the file has, and it is not played", REPAIR,
     "the header's flags are believed"},
    {Rule::HEADER_NO_FLAGS, "header.no_flags", WARNING, REFUSED | NO_TRACK, CURABLE,
     "the header announces no stream, and a stream is found only if it is among the first 10 tags",
     REPAIR, "only the first 10 tags are searched for streams"},
    {Rule::HEADER_RESERVED, "header.reserved", NOTICE, NOTHING, CURABLE,
     "reserved bits of the header's flags are set, which does no harm here", REPAIR, nullptr},
    {Rule::AUDIO_FORMAT14, "audio.format14", WARNING, REFUSED, LASTING,
     "the audio is announced as MP3 at 8 kHz (SoundFormat 14), which keeps the whole file closed",
     CONVERT_AUDIO, "SoundFormat 14 is not read"},
    {Rule::AUDIO_FORMAT15, "audio.format15", WARNING, REFUSED, LASTING,
     "the audio is device-specific (SoundFormat 15), which keeps the whole file closed",
     CONVERT_AUDIO, nullptr},
    {Rule::CODEC_NEWER, "codec.newer", WARNING, REFUSED | NO_TRACK | FRAMES | SEEK, LASTING,
     "the codec or its header is newer than FLV 10.1 knows, and is not understood",
     "Convert the stream to H.264 or AAC, or put it into another container without loss.",
     "codecs after FLV 10.1 are not known"},
    {Rule::CODEC_UNPLAYABLE, "codec.unplayable", WARNING, NO_TRACK, LASTING,
     "the device has no decoder for the codec",
     "Convert the stream to H.264, AAC or MP3, or name a device with --device that plays it.",
     "the device does not name the codec"},
    {Rule::TAG_ENCRYPTED, "tag.encrypted", WARNING, REFUSED | NO_TRACK | FRAMES | SEEK, LASTING,
     "tags are encrypted, and are left out", "Ask for the file without encryption.", nullptr},
    {Rule::TAG_RESERVED, "tag.reserved", WARNING, REFUSED | NO_TRACK | FRAMES | SEEK, LASTING,
     "reserved bits of the tag type are set, and the tags are left out",
     "Fix the program that wrote it.", "the tag type is compared with all its bits"},
    {Rule::MP3_NO_SYNC, "mp3.no_sync", WARNING, REFUSED, LASTING,
     "the first MP3 tag has no frame header, which keeps the whole file closed", CONVERT_AUDIO,
     nullptr},
    {Rule::MP3_BAD_HEADER, "mp3.bad_header", WARNING, REFUSED, LASTING,
     "the first MP3 frame header has a reserved value, which keeps the whole file closed",
     CONVERT_AUDIO, nullptr},
    {Rule::MP3_ID3, "mp3.id3", NOTICE, NOTHING, LASTING,
     "the MP3 stream begins with an ID3 tag, which the decoder gets as audio", NOTHING_TO_DO,
     nullptr},
    {Rule::AAC_CONFIG_BAD, "aac.config_bad", WARNING, REFUSED, LASTING,
     "the first AAC tag is no usable configuration, which keeps the whole file closed",
     CONVERT_AUDIO, nullptr},
    {Rule::AVC_SPS_UNREAD, "avc.sps_unread", WARNING, REFUSED | NO_TRACK | FRAMES | SEEK, LASTING,
     "the sequence parameter set is one that the demuxer does not read, and no configuration is "
     "published",
     ENCODE_AGAIN,
     "the demuxer reads sequence parameter sets with nal_ref_idc 3 and sane sizes only"},
    {Rule::AVC_SIZE_MISREAD, "avc.size_misread", WARNING, NO_TRACK, LASTING,
     "the sequence parameter set is one whose picture size the demuxer misreads, and the track has "
     "the wrong size",
     ENCODE_AGAIN, "the picture size is misread"},
    {Rule::AVC_CONFIG_BAD, "avc.config_bad", WARNING, REFUSED | NO_TRACK | FRAMES | SEEK, LASTING,
     "the AVC configuration cannot be read", ENCODE_AGAIN, nullptr},
    {Rule::AVC_NO_CONFIG, "avc.no_config", WARNING, REFUSED | NO_TRACK | FRAMES | SEEK, LASTING,
     "the file has no AVC configuration, and no frame can be decoded",
     "Record it again; a server must send the configuration to those who join late.", nullptr},
    {Rule::AVC_LATE_CONFIG, "avc.late_config", WARNING, REFUSED | NO_TRACK | FRAMES | SEEK, CURABLE,
     "the AVC configuration comes after frames, which are left out", REPAIR_OR_RECORD, nullptr},
    {Rule::VIDEO_NO_SIZE, "video.no_size", WARNING, REFUSED, LASTING,
     "neither the video nor the metadata says how large the picture is, which keeps the whole file "
     "closed",
     "Put the size into the metadata with a muxer, or encode the video again.",
     "the size must be in the first tags"},
    {Rule::VIDEO_NO_CONFIG, "video.no_config", WARNING, NO_TRACK, LASTING,
     "the device finds no video configuration", ENCODE_AGAIN,
     "the device wants a configuration that it understands"},
    {Rule::VIDEO_TOO_LARGE, "video.too_large", WARNING, NO_TRACK, LASTING,
     "the picture has more pixels than the device plays",
     "Scale the video down, or name a device with --device that plays it.",
     "the device limits the picture size"},
    {Rule::HEADER_INNER, "header.inner", WARNING, LOST_WAY, CURABLE,
     "a second FLV header is in the middle: recordings were joined as they are, and reading loses "
     "its way there",
     REPAIR, nullptr},
    {Rule::DATA_DAMAGED, "data.damaged", WARNING, LOST_WAY, CURABLE,
     "bytes between the tags are damaged, and reading loses its way there",
     "`zoflv repair` leaves the damaged part out; fetch the file again to have it whole.", nullptr},
    {Rule::DATA_ZEROS, "data.zeros", WARNING, LOST_WAY, CURABLE,
     "zeros are in place of tags, and reading may lose its way there",
     "`zoflv repair` leaves them out; fetch the file again to have it whole.",
     "tags are read one after the other, without looking for where they go on"},
    {Rule::PREV_MISSING, "prev.missing", WARNING, LOST_WAY, CURABLE,
     "the size after a tag is missing, and reading goes on 4 bytes off", REPAIR_OR_RECORD,
     "the 4 bytes after each tag are skipped, whatever is there"},
    {Rule::TAG_EMPTY, "tag.empty", WARNING, LOST_WAY, CURABLE,
     "a tag has 0 or 1 bytes, which is taken for the end of its stream", REPAIR_OR_RECORD,
     "a tag without payload ends the stream"},
    {Rule::TAG_NO_PAYLOAD, "tag.no_payload", NOTICE, FRAMES | SEEK, CURABLE,
     "a tag has a codec header and no payload", REPAIR_OR_RECORD,
     "an AVC tag without payload ends the reading"},
    {Rule::AVC_END_MIDDLE, "avc.end_middle", WARNING, NO_TRACK | FRAMES | SEEK, CURABLE,
     "an end of the video sequence is followed by frames", REPAIR,
     "the end is reported to the player, which stops there"},
    {Rule::AVC_START_CODES, "avc.start_codes", WARNING, NO_TRACK | FRAMES | SEEK, LASTING,
     "frames have start codes where NAL unit lengths should be, and cannot be decoded",
     "Fix the program that wrote it: FLV wants lengths.", "start codes are read as lengths"},
    {Rule::AVC_NAL_LENGTH, "avc.nal_length", WARNING, NO_TRACK | FRAMES | SEEK, LASTING,
     "NAL unit lengths do not fill the tag, and the frame is delivered cut or ends its track",
     ENCODE_AGAIN, nullptr},
    {Rule::FRAME_TOO_LARGE, "frame.too_large", WARNING, NO_TRACK | FRAMES | SEEK, LASTING,
     "a frame is larger than the buffer that the track asks for: the track ends there, or loses "
     "the "
     "frame",
     "Encode the stream again with a lower peak rate.",
     "the buffer follows the picture size alone"},
    {Rule::CODEC_CHANGE, "codec.change", WARNING, NO_TRACK | FRAMES | SEEK, LASTING,
     "the codec changes in the middle, and all is delivered as the first one",
     "Cut the file where the codec changes.", "a track keeps its first codec"},
    {Rule::AVC_CONFIG_CHANGED, "avc.config_changed", WARNING, FRAMES | SEEK, LASTING,
     "the AVC configuration changes in the middle: it arrives as a frame, the track's format stays",
     "Cut the file where the configuration changes.", nullptr},
    {Rule::AVC_CONFIG_AGAIN, "avc.config_again", NOTICE, NOTHING, LASTING,
     "the same AVC configuration comes again, which does no harm", NOTHING_TO_DO, nullptr},
    {Rule::AAC_RAW_FIRST, "aac.raw_first", WARNING, REFUSED | NO_TRACK | FRAMES, LASTING,
     "the AAC stream begins with a frame: that one is left out, and the track has no codec data",
     "Record it again from the start, or convert the audio.",
     "the configuration must be the first audio tag"},
    {Rule::AAC_NO_CONFIG, "aac.no_config", WARNING, NOTHING, LASTING,
     "the file has no AAC configuration, and the decoder must guess",
     "Record it again; a server must send the configuration to those who join late.", nullptr},
    {Rule::AAC_LATE_CONFIG, "aac.late_config", WARNING, NOTHING, CURABLE,
     "the AAC configuration comes after frames, and the track has no codec data", REPAIR_OR_RECORD,
     nullptr},
    {Rule::AAC_CONFIG_CHANGED, "aac.config_changed", WARNING, NOTHING, LASTING,
     "the AAC configuration changes in the middle, and the track's format stays",
     "Cut the file where the configuration changes.", nullptr},
    {Rule::AAC_CONFIG_AGAIN, "aac.config_again", NOTICE, NOTHING, LASTING,
     "the same AAC configuration comes again, which does no harm", NOTHING_TO_DO, nullptr},
    {Rule::AAC_RATE_0, "aac.rate_0", WARNING, NOTHING, LASTING,
     "the AAC configuration has a sampling rate for which the track gets no codec data",
     CONVERT_AUDIO, nullptr},
    {Rule::AAC_CHANNELS_0, "aac.channels_0", WARNING, NOTHING, LASTING,
     "the AAC configuration leaves the channels to the stream, and the track says 0 channels",
     CONVERT_AUDIO, nullptr},
    {Rule::AAC_CHANNELS_7, "aac.channels_7", WARNING, NOTHING, LASTING,
     "the AAC configuration has 8 channels (configuration 7), and the track's codec data say 8, "
     "which is reserved",
     CONVERT_AUDIO, nullptr},
    {Rule::TAG_CUT, "tag.cut", WARNING, LOST_WAY, CURABLE,
     "the file ends inside its last tag, which is lost",
     "`zoflv repair` drops the cut tag; fetch the rest of the file to have it whole.", nullptr},
    {Rule::PREV_LAST, "prev.last", WARNING, NO_TRACK | FRAMES | SEEK, CURABLE,
     "the size after the last tag is missing or cut, and the last frame is lost", REPAIR,
     "each frame must be followed by its size"},
    {Rule::TAIL_ZEROS, "tail.zeros", WARNING, FRAMES | SEEK, CURABLE,
     "zeros come after the last tag, which shifts where seeks look", REPAIR, nullptr},
    {Rule::TAIL_GARBAGE, "tail.garbage", WARNING, FRAMES | SEEK, CURABLE,
     "bytes that are no tag come after the last tag", REPAIR, nullptr},
    {Rule::INDEX_FIRST_BEYOND, "index.first_beyond", WARNING, REFUSED | NO_TRACK, CURABLE,
     "the keyframe index begins after the end of the file, and no track can be opened", REPAIR,
     "the index is believed and its first entry read"},
    {Rule::INDEX_REJECTED, "index.rejected", WARNING, SEEK, CURABLE,
     "the keyframe index is not used, since its first entry leads to no tag", REPAIR, nullptr},
    {Rule::INDEX_BEYOND, "index.beyond", WARNING, SEEK, CURABLE,
     "entries of the keyframe index lie after the end of the file, and seeks to them fail", REPAIR,
     nullptr},
    {Rule::INDEX_SHIFTED, "index.shifted", WARNING, SEEK, CURABLE,
     "entries of the keyframe index are some bytes off their keyframes, and seeks must search",
     REPAIR, nullptr},
    {Rule::INDEX_MISS, "index.miss", WARNING, SEEK, CURABLE,
     "entries of the keyframe index lead to no tag, and seeks must search", REPAIR, nullptr},
    {Rule::INDEX_TYPE, "index.type", WARNING, SEEK | FRAMES, CURABLE,
     "entries of the keyframe index lead to tags of another type", REPAIR, nullptr},
    {Rule::INDEX_NO_KEYFRAME, "index.no_keyframe", WARNING, SEEK, CURABLE,
     "entries of the keyframe index lead to frames that are no keyframes, and the picture is "
     "broken "
     "up to the next",
     REPAIR, nullptr},
    {Rule::INDEX_ORDER, "index.order", WARNING, SEEK, CURABLE,
     "the keyframe index is not in the order of its times, and seeks find wrong entries", REPAIR,
     nullptr},
    {Rule::INDEX_TIME, "index.time", WARNING, SEEK, CURABLE,
     "times in the keyframe index are not those of their tags, and seeks land elsewhere", REPAIR,
     nullptr},
    {Rule::INDEX_COUNTS, "index.counts", WARNING, SEEK, CURABLE,
     "the keyframe index has more times than positions or the other way round, and its end is not "
     "used",
     REPAIR, nullptr},
    {Rule::INDEX_SPARSE, "index.sparse", WARNING, SEEK, CURABLE,
     "the keyframe index leaves keyframes out, and seeks land earlier than they could", REPAIR,
     nullptr},
    {Rule::META_NOT_FIRST, "meta.not_first", WARNING, REFUSED | NO_TRACK | SEEK, CURABLE,
     "onMetaData is not in the first tag, and is not read", REPAIR,
     "metadata are read from the first tag only"},
    {Rule::META_OBJECT, "meta.object", WARNING, REFUSED | NO_TRACK | SEEK, CURABLE,
     "onMetaData is an Object in place of an ECMA array, and is not read", REPAIR,
     "metadata are read from an ECMA array only"},
    {Rule::META_UNREADABLE, "meta.unreadable", WARNING, REFUSED | NO_TRACK | SEEK, CURABLE,
     "the metadata are damaged, and are read up to there at most", REPAIR, nullptr},
    {Rule::META_COUNT, "meta.count", WARNING, REFUSED | NO_TRACK | SEEK, CURABLE,
     "onMetaData does not have as many properties as it says, and what comes after so many is not "
     "read",
     REPAIR, "properties are counted"},
    {Rule::META_TYPE, "meta.type", WARNING, REFUSED | NO_TRACK | SEEK, CURABLE,
     "a property of onMetaData has another type than it should, and what comes after is misread",
     REPAIR, "a known property is read as its usual type"},
    {Rule::META_PREFIX, "meta.prefix", WARNING, REFUSED | NO_TRACK | SEEK, CURABLE,
     "a property's name is the beginning of a known one, whose value it replaces", REPAIR,
     "a name is compared over its own length"},
    {Rule::META_NONE, "meta.none", NOTICE, REFUSED | NO_TRACK | SEEK, CURABLE,
     "the file has no onMetaData, and so no duration and no keyframe index", REPAIR, nullptr},
    {Rule::META_TWICE, "meta.twice", NOTICE, NOTHING, CURABLE,
     "onMetaData comes again, and only the first tag's is read", REPAIR, nullptr},
    {Rule::SCRIPT_SEVERAL, "script.several", NOTICE, NOTHING, LASTING,
     "the file has other script tags, which are not read", NOTHING_TO_DO, nullptr},
    {Rule::DURATION_NONE, "duration.none", WARNING, SEEK, CURABLE,
     "no duration is known, and a seek to any time but 0 fails", REPAIR, nullptr},
    {Rule::DURATION_ZERO, "duration.zero", WARNING, SEEK, CURABLE,
     "the metadata say that the duration is 0, and a seek to any other time fails", REPAIR,
     nullptr},
    {Rule::DURATION_ABSURD, "duration.absurd", WARNING, SEEK, CURABLE,
     "the duration in the metadata cannot be right, and seeks fail or look in wrong places", REPAIR,
     nullptr},
    {Rule::DURATION_SHORT, "duration.short", WARNING, SEEK, CURABLE,
     "the duration in the metadata is too short, and what comes after it cannot be sought", REPAIR,
     nullptr},
    {Rule::DURATION_LONG, "duration.long", WARNING, SEEK, CURABLE,
     "the duration in the metadata is too long, and seeks without an index look too early", REPAIR,
     nullptr},
    {Rule::TIME_WRAP24, "time.wrap24", WARNING, SEEK, CURABLE,
     "times begin again after 4 h 39 min, since their highest byte is not written", REPAIR,
     nullptr},
    {Rule::TIME_WRAP32, "time.wrap32", WARNING, SEEK, LASTING,
     "times pass the largest that a tag can hold, and begin again at 0",
     "Cut the file there, and let the second part begin at 0.", nullptr},
    {Rule::TIME_NEGATIVE, "time.negative", WARNING, FRAMES | SEEK, CURABLE,
     "times are negative, and are read as 24 days and more", REPAIR,
     "times are read without a sign"},
    {Rule::TIME_RESET, "time.reset", WARNING, SEEK, CURABLE,
     "times go back by more than a second, and seeks find one part or the other",
     "`zoflv repair` puts the parts one after the other where both streams go back.", nullptr},
    {Rule::TIME_START, "time.start", WARNING, SEEK, CURABLE,
     "times do not begin near 0, and seeks by the file's duration do not reach its end", REPAIR,
     "times are used as they are"},
    {Rule::TIME_JUMP, "time.jump", WARNING, SEEK, LASTING,
     "times jump ahead by more than 10 s, and playing waits there",
     "`zoflv repair --join-gaps` closes the gap.", nullptr},
    {Rule::TIME_BACK, "time.back", WARNING, SEEK, LASTING,
     "times go back by up to a second, and frames may be shown late or not at all",
     "Fix the program that wrote it.", nullptr},
    {Rule::TIME_REPEAT, "time.repeat", NOTICE, SEEK, LASTING,
     "frames of one stream have the same time", "Fix the program that wrote it.", nullptr},
    {Rule::SYNC_DRIFT, "sync.drift", WARNING, NOTHING, LASTING, "audio and video drift apart",
     "Record it again, or stretch one stream with an editor.", nullptr},
    {Rule::TAG_STREAM_ID, "tag.stream_id", WARNING, SEEK, CURABLE,
     "the stream id of tags is not 0, and seeks do not take them for tags", REPAIR_OR_RECORD,
     "seeks look for tags with stream id 0"},
    {Rule::TAG_TYPE, "tag.type", NOTICE, NOTHING, CURABLE,
     "tags have a type that is neither audio, video nor script data, and are left out", REPAIR,
     nullptr},
    {Rule::PREV_ZERO, "prev.zero", WARNING, SEEK, CURABLE,
     "the size after tags is 0, and seeks without an index do not find them", REPAIR, nullptr},
    {Rule::PREV_BODY, "prev.body", WARNING, SEEK, CURABLE,
     "the size after tags leaves out the 11 bytes of their headers, and seeks without an index do "
     "not find them",
     REPAIR, nullptr},
    {Rule::PREV_PLUS15, "prev.plus15", WARNING, SEEK, CURABLE,
     "the size after tags is 15 too large, and seeks without an index do not find them", REPAIR,
     nullptr},
    {Rule::PREV_OTHER, "prev.other", WARNING, SEEK, CURABLE,
     "the size after tags is wrong, and seeks without an index do not find them", REPAIR, nullptr},
    {Rule::PREV_PLUS4, "prev.plus4", NOTICE, NOTHING, CURABLE,
     "the size after tags is 4 too large, which does no harm here", REPAIR, nullptr},
    {Rule::PREV_FIRST, "prev.first", NOTICE, NOTHING, CURABLE,
     "the size before the first tag is not 0, which does no harm here", REPAIR, nullptr},
    {Rule::VIDEO_FIRST_NOT_KEY, "video.first_not_key", WARNING, SEEK, LASTING,
     "the video does not begin with a keyframe, and the picture is broken up to the first one",
     "Record it again, or cut the file at its first keyframe.", nullptr},
    {Rule::AVC_KEY_FLAG, "avc.key_flag", WARNING, NOTHING, LASTING,
     "frames are flagged as keyframes and are none, or the other way round, and seeks land on them",
     "Fix the program that wrote it.", nullptr},
    {Rule::INDEX_NONE, "index.none", WARNING, SEEK, CURABLE,
     "there is no keyframe index, and seeks must estimate the place and search", REPAIR, nullptr},
    {Rule::SEEK_AUDIO, "seek.audio", WARNING, NOTHING, LASTING,
     "seeks of the audio land neither near their target nor where the video does",
     "A player that seeks the audio to where the video landed plays in step.", nullptr},
    {Rule::SEEK_MODES, "seek.modes", WARNING, NOTHING, LASTING,
     "seeks miss in modes that few players use",
     "Nothing needs to be done unless the player uses these modes.", nullptr},
    {Rule::UNEXPLAINED, "unexplained", Level::ERROR, NOTHING, LASTING,
     "the plugin showed something for which no reason was found",
     "Report it with the file: it is a fault of this program.", nullptr},
};

constexpr bool in_order()
{
    for (size_t i = 0; i < std::size(RULES); ++i) {
        if (RULES[i].rule != static_cast<Rule>(i))
            return false;
    }
    return std::size(RULES) == RULE_COUNT;
}
static_assert(in_order(), "one row per rule");

constexpr struct {
    Shown shown;
    const char* text;
} SHOWN_TEXTS[] = {
    {SHOWN_REFUSED, "the file is refused"},
    {SHOWN_NO_TRACK, "a track is missing"},
    {SHOWN_FRAMES, "frames are missing or others"},
    {SHOWN_SEEK, "seeks miss"},
};

std::string explains_text(uint8_t explains)
{
    std::string text;
    for (const auto& row : SHOWN_TEXTS) {
        if (explains & row.shown)
            text += (text.empty() ? "" : ", ") + std::string(row.text);
    }
    return text.empty() ? "nothing that the plugin shows" : text;
}

std::string sentence(std::string text)
{
    const bool is_name = text.compare(0, 10, "onMetaData") == 0;
    if (!is_name && text[0] >= 'a' && text[0] <= 'z')
        text[0] = static_cast<char>(text[0] - 'a' + 'A');
    return text + ".";
}

} // namespace

const FindingRule& rule_of(Rule rule)
{
    return RULES[static_cast<size_t>(rule)];
}

const FindingRule* rule_of(std::string_view code)
{
    for (const FindingRule& rule : RULES) {
        if (code == rule.code)
            return &rule;
    }
    return nullptr;
}

const char* name_of(Level level)
{
    constexpr const char* NAMES[] = {"notice", "warning", "error"};
    return NAMES[static_cast<size_t>(level)];
}

std::string finding_text(const FindingRule& rule)
{
    std::string text = "## " + std::string(rule.code) + "\n\n" + sentence(rule.consequence);
    if (rule.elsewhere)
        text += " It may play elsewhere, not here, because " + std::string(rule.elsewhere) + ".";
    text += "\n\n- Level: " + std::string(name_of(rule.level)) + "\n";
    text += "- Can explain: " + explains_text(rule.explains) + "\n";
    text += "- Remedy: " + std::string(rule.remedy) + "\n";
    return text;
}

std::string findings_document()
{
    std::string text = "# Findings\n\n"
                       "What `zoflv check` says about a file, each with its code. A finding is a "
                       "notice or a warning as\n"
                       "given here, and an error when it explains something that the plugin "
                       "showed. Of several that\n"
                       "explain the same, the one that comes first here is named as the cause.\n\n"
                       "This page is the output of `zoflv findings`.\n";
    for (const FindingRule& rule : RULES)
        text += "\n" + finding_text(rule);
    return text;
}

} // namespace zoflv_inspect
