// SPDX-License-Identifier: Apache-2.0
/// @file
/// The rules that findings follow: what each means for whoever plays the file, and what to do.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace zoflv_inspect {

/// How much a finding matters. ERROR is the verdict's to give: a finding is an error exactly when it
/// explains something that the plugin showed.
enum class Level : uint8_t { NOTICE, WARNING, ERROR };

/// What a plugin can show of a file that is not as it should be; bits.
enum Shown : uint8_t {
    SHOWN_NOTHING = 0,
    SHOWN_REFUSED = 1, ///< the file is not opened, whatever its streams
    SHOWN_NO_TRACK =
        2,            ///< no track of the kind is published without error, starts and gives a frame
    SHOWN_FRAMES = 4, ///< the kind's frames are not the ones expected, from somewhere on
    SHOWN_SEEK = 8,   ///< a seek misses
};

/// Every rule, in the order in which they are looked at for a cause: of several that explain the
/// same, the first is the one to name.
enum class Rule : uint8_t {
    FILE_READ_FAILED,
    FILE_EMPTY,
    FILE_ID3,
    FILE_NO_HEADER,
    HEADER_CUT,
    HEADER_VERSION,
    HEADER_DATA_OFFSET,
    HEADER_LONGER,
    FILE_NO_MEDIA,
    FILE_NO_FRAMES,
    HEADER_ABSENT,
    HEADER_LATE,
    HEADER_HIDES,
    HEADER_NO_FLAGS,
    HEADER_RESERVED,
    AUDIO_FORMAT14,
    AUDIO_FORMAT15,
    CODEC_NEWER,
    CODEC_UNPLAYABLE,
    TAG_ENCRYPTED,
    TAG_RESERVED,
    MP3_NO_SYNC,
    MP3_BAD_HEADER,
    MP3_ID3,
    AAC_CONFIG_BAD,
    AVC_SPS_UNREAD,
    AVC_SIZE_MISREAD,
    AVC_CONFIG_BAD,
    AVC_NO_CONFIG,
    AVC_LATE_CONFIG,
    VIDEO_NO_SIZE,
    VIDEO_NO_CONFIG,
    VIDEO_TOO_LARGE,
    HEADER_INNER,
    DATA_DAMAGED,
    DATA_ZEROS,
    PREV_MISSING,
    TAG_EMPTY,
    TAG_NO_PAYLOAD,
    AVC_END_MIDDLE,
    AVC_START_CODES,
    AVC_NAL_LENGTH,
    FRAME_TOO_LARGE,
    CODEC_CHANGE,
    AVC_CONFIG_CHANGED,
    AVC_CONFIG_AGAIN,
    AAC_RAW_FIRST,
    AAC_NO_CONFIG,
    AAC_LATE_CONFIG,
    AAC_CONFIG_CHANGED,
    AAC_CONFIG_AGAIN,
    AAC_RATE_0,
    AAC_CHANNELS_0,
    AAC_CHANNELS_7,
    TAG_CUT,
    PREV_LAST,
    TAIL_ZEROS,
    TAIL_GARBAGE,
    INDEX_FIRST_BEYOND,
    INDEX_REJECTED,
    INDEX_BEYOND,
    INDEX_SHIFTED,
    INDEX_MISS,
    INDEX_TYPE,
    INDEX_NO_KEYFRAME,
    INDEX_ORDER,
    INDEX_TIME,
    INDEX_COUNTS,
    INDEX_SPARSE,
    META_NOT_FIRST,
    META_OBJECT,
    META_UNREADABLE,
    META_COUNT,
    META_TYPE,
    META_PREFIX,
    META_NONE,
    META_TWICE,
    SCRIPT_SEVERAL,
    DURATION_NONE,
    DURATION_ZERO,
    DURATION_ABSURD,
    DURATION_SHORT,
    DURATION_LONG,
    TIME_WRAP24,
    TIME_WRAP32,
    TIME_NEGATIVE,
    TIME_RESET,
    TIME_START,
    TIME_JUMP,
    TIME_BACK,
    TIME_REPEAT,
    SYNC_DRIFT,
    TAG_STREAM_ID,
    TAG_TYPE,
    PREV_ZERO,
    PREV_BODY,
    PREV_PLUS15,
    PREV_OTHER,
    PREV_PLUS4,
    PREV_FIRST,
    VIDEO_FIRST_NOT_KEY,
    AVC_KEY_FLAG,
    INDEX_NONE,
    SEEK_AUDIO,
    SEEK_MODES,
    UNEXPLAINED,
    COUNT, ///< not a rule
};
constexpr size_t RULE_COUNT = static_cast<size_t>(Rule::COUNT);

struct FindingRule {
    Rule rule;
    const char* code; ///< `topic.what`, never changed once it was released
    Level level;      ///< unless it explains something
    uint8_t explains; ///< bits of Shown: what it can be the reason of, for its kind of stream
    bool curable;     ///< `zoflv repair` mends it, as a rule
    const char* consequence; ///< a sentence without its full stop
    const char* remedy;      ///< a sentence
    /// Why other players play what is not played here, as in "plays elsewhere, not here, because …";
    /// null when nothing is known of that.
    const char* elsewhere;
};

const FindingRule& rule_of(Rule rule);
/// Null when there is no such code.
const FindingRule* rule_of(std::string_view code);
/// "error", "warning" or "notice".
const char* name_of(Level level);

/// What a rule means, as a section in Markdown.
std::string finding_text(const FindingRule& rule);
/// The documentation of all rules, in Markdown.
std::string findings_document();

} // namespace zoflv_inspect
