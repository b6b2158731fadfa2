// SPDX-License-Identifier: Apache-2.0
#include "tools/info_data.h"

#include "inspect/codec_names.h"
#include "inspect/head.h"
#include "tools/file.h"
#include "tools/properties.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <type_traits>
#include <utility>
#include <zodevice/zo_media_formats.h>

std::string codec_text(uint32_t code)
{
    switch (code) {
    case 0:
        return "unknown";
    case ZOFLV_FOURCC_MPEG_AUDIO:
        return "MPEG audio";
    case ZOFLV_FOURCC_AAC:
        return "AAC";
    default:
        char name[sizeof code];
        std::memcpy(name, &code, sizeof code); // the four characters, in memory order
        return printable({name, sizeof name}, true);
    }
}

namespace {

using zoflv_inspect::AmfType;
using zoflv_inspect::Head;
using zoflv_inspect::ScriptNode;

// ------------------------------------------------------------- Container

/// What wrote the file, as it says itself; null when it does not.
Json made_by_json(const Head& head)
{
    const auto name = zoflv_inspect::made_by(head);
    return name ? Json(*name) : Json(nullptr);
}

Json container_json(const FlvFile& file, const Head& head)
{
    const ZOFLVD_INFO& info = file.info();
    Json regions = Json::array();
    for (int i = 0; i < info.region_cnt; ++i) {
        const ZOFLVD_REGION& r = info.region[i];
        regions.push_back({{"type", r.type}, {"pos", r.pos}, {"size", r.size}});
    }
    return {{"size", file.size()},
            {"duration", info.duration},
            {"seekable", info.seekable != 0},
            {"regions", regions},
            {"flv_version", head.header ? Json(head.header->version) : Json(nullptr)},
            {"made_by", made_by_json(head)},
            {"sources", {{"duration", "metadata"}}}};
}

// --------------------------------------------------------------- Streams

/// Null when it is not available.
Json codec_data_json(const FlvFile& file, int stream)
{
    int size = 0;
    int rc = zoflvd_get_format(file.handle(), stream, nullptr, &size);
    std::vector<uint8_t> data(rc == ZOFLV_OK ? static_cast<size_t>(std::max(size, 0)) : 0);
    if (!data.empty())
        rc = zoflvd_get_format(file.handle(), stream, data.data(), &size);
    return rc == ZOFLV_OK ? Json(hex(data.data(), data.size())) : Json(nullptr);
}

/// The AVC profile and level from a sequence parameter set; null when there is none in front.
/// @param digits  codec data in hexadecimal, NAL units after start codes
Json avc_profile(const std::string& digits)
{
    constexpr size_t sps_at = 8; // after the start code: nal_unit_type 7, profile, flags, level
    if (digits.size() < sps_at + 8 || std::stoul(digits.substr(sps_at, 2), nullptr, 16) % 32 != 7)
        return nullptr;
    const auto byte = [&](size_t i) {
        return static_cast<uint8_t>(std::stoul(digits.substr(sps_at + 2 * i, 2), nullptr, 16));
    };
    const char* const name = zoflv_inspect::avc_profile_name(byte(1), byte(2));
    return (name ? std::string(name) : textf("profile %d", byte(1))) + '@' +
           zoflv_inspect::avc_level_name(byte(1), byte(2), byte(3));
}

/// The AAC object type of the file's own configuration; null when there is none.
Json aac_profile(const Head& head)
{
    if (head.aac_config.empty())
        return nullptr;
    const auto type = static_cast<uint8_t>(head.aac_config[0] >> 3); // audioObjectType
    const char* const name = zoflv_inspect::aac_object_name(type);
    return name ? std::string(name) : textf("object type %d", type);
}

/// Adds what the demuxer found of a video stream.
void add_video(Json* object, const FlvFile& file, const Head& head, int stream)
{
    ZOFLVD_INFO_VID v{};
    zoflvd_get_info_vid(file.handle(), stream, &v);
    const Json codec_data = codec_data_json(file, stream);
    const std::string codec = codec_text(v.fourcc);
    const char* const size_source = head.video_sized ? "codec header" : "metadata";
    object->update({{"recognised", v.valid != 0},
                    {"width", v.width},
                    {"height", v.height},
                    {"frame_rate", v.frame_rate},
                    {"frame_count", v.frm_cnt},
                    {"byte_rate", v.byte_rate},
                    {"max_frame_size", v.max_frm_size},
                    {"codec_data", codec_data},
                    {"profile", codec == "h264" && codec_data.is_string()
                                    ? avc_profile(codec_data.get<std::string>())
                                    : Json(nullptr)},
                    {"sources",
                     {{"width", size_source},
                      {"height", size_source},
                      {"frame_rate", "metadata"},
                      {"frame_count", "estimate"}, // duration by rate
                      {"byte_rate", "estimate"},
                      {"max_frame_size", "estimate"}}}}); // of a picture without compression
}

void add_audio(Json* object, const FlvFile& file, const Head& head, int stream)
{
    ZOFLVD_INFO_AUD a{};
    zoflvd_get_info_aud(file.handle(), stream, &a);
    const std::string codec = codec_text(a.fourcc);
    // Of any other codec it is the byte in front of each frame that tells.
    const char* const source =
        codec == "AAC" || codec == "MPEG audio" ? "codec header" : "tag header";
    object->update({{"recognised", a.valid != 0},
                    {"sample_rate", a.sample_rate},
                    {"channels", a.channels},
                    {"bits_per_sample", a.bits_per_sample},
                    {"bit_rate", a.bit_rate},
                    {"byte_rate", a.byte_rate},
                    {"max_frame_size", a.max_frm_size},
                    {"codec_data", codec_data_json(file, stream)},
                    {"profile", codec == "AAC" ? aac_profile(head) : Json(nullptr)},
                    {"sources",
                     {{"sample_rate", source},
                      {"channels", source},
                      {"bits_per_sample", "tag header"},
                      {"bit_rate", "codec header"},
                      {"byte_rate", "estimate"},
                      {"max_frame_size", "estimate"}}}});
}

Json stream_json(const FlvFile& file, const Head& head, int stream)
{
    const bool video = file.info().strm_type[stream] == ZOFLV_TAG_VIDEO;
    const uint32_t code = file.info().codec[stream];
    Json object = {{"index", stream},
                   {"type", video ? "video" : "audio"},
                   {"codec", codec_text(code)},
                   {"codec_code", code}};
    if (video)
        add_video(&object, file, head, stream);
    else
        add_audio(&object, file, head, stream);
    return object;
}

// -------------------------------------------------------------- Metadata

/// What the demuxer decodes, in its order of search.
constexpr struct Property {
    const char* key;
    const char* name; ///< in the file
    AmfType type;
} known_properties[] = {
    {"has_keyframes", "hasKeyframes", AmfType::BOOLEAN},
    {"has_video", "hasVideo", AmfType::BOOLEAN},
    {"has_metadata", "hasMetadata", AmfType::BOOLEAN},
    {"has_cue_points", "hasCuePoints", AmfType::BOOLEAN},
    {"can_seek_to_end", "canSeekToEnd", AmfType::BOOLEAN},
    {"duration", "duration", AmfType::NUMBER},
    {"last_timestamp", "lasttimestamp", AmfType::NUMBER},
    {"last_keyframe_timestamp", "lastkeyframetimestamp", AmfType::NUMBER},
    {"file_size", "filesize", AmfType::NUMBER},
    {"data_size", "datasize", AmfType::NUMBER},
    {"video_codec_id", "videocodecid", AmfType::NUMBER},
    {"width", "width", AmfType::NUMBER},
    {"height", "height", AmfType::NUMBER},
    {"frame_rate", "framerate", AmfType::NUMBER},
    {"video_data_rate", "videodatarate", AmfType::NUMBER},
    {"video_size", "videosize", AmfType::NUMBER},
    {"audio_codec_id", "audiocodecid", AmfType::NUMBER},
    {"audio_size", "audiosize", AmfType::NUMBER},
    {"audio_data_rate", "audiodatarate", AmfType::NUMBER},
    {"audio_delay", "audiodelay", AmfType::NUMBER},
    {"keyframe_count", "keyframes", AmfType::OBJECT},
    {"filepositions_count", "filepositions", AmfType::STRICT_ARRAY},
    {"times_count", "times", AmfType::STRICT_ARRAY},
};

/// The demuxer has 0 for what it did not meet: makes such a value null. It takes a name that is the
/// beginning of a known one for that, at whatever depth.
void drop_missing(Json* metadata, const Head& head)
{
    const ScriptNode* const object = zoflv_inspect::metadata_properties(head);
    const bool decoded = object && object->type == AmfType::ECMA_ARRAY && head.header &&
                         head.metadata_tag->offset == head.header->end();
    std::array<bool, std::size(known_properties)> present{};
    for (const ScriptNode& node : head.metadata.nodes()) {
        if (!decoded || !node.has_name)
            continue;
        const std::string_view name = head.metadata.name(node);
        const auto* const row =
            std::find_if(std::begin(known_properties), std::end(known_properties),
                         [&](const Property& property) {
                             return std::string_view(property.name).substr(0, name.size()) == name;
                         });
        if (row == std::end(known_properties) || row->type != node.type)
            continue;
        const bool nan = node.type == AmfType::NUMBER && std::isnan(node.number);
        present[static_cast<size_t>(row - known_properties)] = !nan; // the last one counts
    }
    for (size_t i = 0; i < std::size(known_properties); ++i) {
        Json& value = (*metadata)[known_properties[i].key];
        if (!present[i] && (value == 0 || value == false))
            value = nullptr;
    }
}

/// JSON has no infinity and no NaN: such values become null.
Json metadata_json(const ZOFLVD_METADATA& m, const Head& head)
{
    Json object = {{"has_keyframes", m.has_keyframes != 0},
                   {"has_video", m.has_video != 0},
                   {"has_metadata", m.has_metadata != 0},
                   {"has_cue_points", m.has_cue_points != 0},
                   {"can_seek_to_end", m.can_seek_to_end != 0},
                   {"duration", m.duration},
                   {"last_timestamp", m.last_timestamp},
                   {"last_keyframe_timestamp", m.last_keyframe_timestamp},
                   {"file_size", m.file_size},
                   {"data_size", m.data_size},
                   {"video_codec_id", m.video_codec_id},
                   {"width", m.width},
                   {"height", m.height},
                   {"frame_rate", m.frame_rate},
                   {"video_data_rate", m.video_data_rate},
                   {"video_size", m.video_size},
                   {"audio_codec_id", m.audio_codec_id},
                   {"audio_size", m.audio_size},
                   {"audio_data_rate", m.audio_data_rate},
                   {"audio_delay", m.audio_delay},
                   {"keyframe_count", m.keyframe_cnt},
                   {"filepositions_count", m.filepositions_cnt},
                   {"times_count", m.times_cnt}};
    drop_missing(&object, head);
    return object;
}

// -------------------------------------------------------- Keyframe index

/// The times of the index that the demuxer built of the metadata; empty when it has none.
/// @param trouble  receives the reason when the video stream could not be opened for it
std::vector<int64_t> index_times(const FlvFile& file, std::string* trouble)
{
    std::vector<ZOFLVD_IDX_ENTRY> table;
    for (int i = 0; i < file.info().strm_cnt; ++i) {
        if (file.info().strm_type[i] != ZOFLV_TAG_VIDEO)
            continue;
        int size = 0, count = 0;
        file.log().reset();
        int rc = zoflvd_get_idx_table(file.handle(), i, nullptr, 0, &size, &count);
        if (rc == ZOFLV_OK) {
            table.resize(static_cast<size_t>(count));
            rc = zoflvd_get_idx_table(file.handle(), i, table.data(), size, nullptr, nullptr);
        }
        if (rc != ZOFLV_OK && rc != ZOFLV_ERR_UNSUPPORTED) // that: the index is empty
            *trouble = textf("stream %d: no keyframe index: ", i) + reason(rc, file.log());
        if (rc != ZOFLV_OK)
            table.clear();
    }
    std::vector<int64_t> times;
    for (const ZOFLVD_IDX_ENTRY& entry : table)
        times.push_back(entry.time);
    return times;
}

/// Why the demuxer does not use the index that the metadata have; null when they have none.
Json rejection_json(const FlvFile& file, const ZOFLVD_METADATA& m)
{
    if (!m.filepositions && !m.times)
        return nullptr;
    if (!m.filepositions || !m.times)
        return m.times ? "it has times, but no offsets" : "it has offsets, but no times";
    if (file.info().vid_cnt == 0)
        return "there is no video stream";
    const double first = m.filepositions[0];
    if (!std::isfinite(first) || first < 0)
        return "its first offset is no position in a file";
    if (first >= static_cast<double>(file.size()))
        return textf("its first offset, %.0f, lies past the end of the file", first);
    return textf("at its first offset, %.0f, there is no tag", first);
}

/// A whole number; null when it is too large for one, or not finite.
Json whole_json(double value)
{
    constexpr double limit = 9007199254740992.0; // 2^53: what a double tells exactly
    return std::abs(value) < limit ? Json(std::llround(value)) : Json(nullptr);
}

Json entries_json(const ZOFLVD_METADATA& m)
{
    Json entries = Json::array();
    for (int32_t i = 0; m.filepositions && m.times && i < m.keyframe_cnt; ++i)
        entries.push_back({{"time_us", whole_json(m.times[i] * 1e6)},
                           {"offset", whole_json(m.filepositions[i])}});
    return entries;
}

Json keyframes_json(const FlvFile& file, const ZOFLVD_METADATA& m, bool entries,
                    std::string* trouble)
{
    const std::vector<int64_t> times = index_times(file, trouble);
    Json first, last, interval; // null
    if (!times.empty()) {
        first = times.front();
        last = times.back();
    }
    int64_t span = 0;
    if (times.size() > 1 && !__builtin_sub_overflow(times.back(), times.front(), &span))
        interval = span / static_cast<int64_t>(times.size() - 1);
    const Json why = times.empty() ? rejection_json(file, m) : Json(nullptr);
    Json object = {{"count", times.size()},
                   {"first_time", first},
                   {"last_time", last},
                   {"average_interval", interval},
                   {"status", !times.empty()  ? "used"
                              : why.is_null() ? "none"
                                              : "rejected"},
                   {"reason", why}};
    if (entries)
        object["entries"] = entries_json(m);
    return object;
}

// -------------------------------------------------------------- Framework

Json format_json(const zoflv_host::Format& format)
{
    Json object = Json::object();
    for (const zoflv_host::FormatEntry& entry : format.entries())
        object[entry.key] = std::visit(
            [](const auto& value) -> Json {
                if constexpr (std::is_same_v<decltype(value), const std::vector<uint8_t>&>)
                    return hex(value.data(), value.size());
                else
                    return value;
            },
            entry.value);
    return object;
}

/// Why the device would not play a track; null when the plugin publishes it without an error and the
/// profile has its type. The plugin asks the device about video alone: audio is judged here.
Json error_json(const zoflv_host::Format& format, const zoflv_inspect::DeviceProfile& device)
{
    constexpr char unsupported[] = "codec not supported by the device";
    const int32_t type = format.int32(android::AMEDIAFORMAT_KEY_ERROR_TYPE).value_or(0);
    switch (type) {
    case 0:
        return device.plays(format.string(AMEDIAFORMAT_KEY_MIME).value_or(std::string()))
                   ? Json(nullptr)
                   : Json(unsupported);
    case -1002:
        return unsupported;
    case -1003:
        return "no configuration in the codec data or the first frames";
    case -1004:
        return "picture larger than the device's limit";
    default:
        return textf("error type %d", type);
    }
}

Json framework_json(zoflv_host::Extractor& extractor, const zoflv_inspect::DeviceProfile& device)
{
    constexpr std::pair<uint32_t, const char*> flag_names[] = {
        {android::CAN_SEEK_BACKWARD, "seek backward"},
        {android::CAN_SEEK_FORWARD, "seek forward"},
        {android::CAN_PAUSE, "pause"},
        {android::CAN_SEEK, "seek"},
    };
    Json flags = Json::array(), tracks = Json::array();
    for (const auto& [bit, name] : flag_names) {
        if ((extractor.flags() & bit) != 0)
            flags.push_back(name);
    }
    zoflv_host::Format container;
    extractor.container_format(&container);
    for (size_t i = 0; i < extractor.count_tracks(); ++i) {
        zoflv_host::Format format;
        extractor.track_format(i, &format);
        tracks.push_back(
            {{"index", i}, {"error", error_json(format, device)}, {"format", format_json(format)}});
    }
    // A float's own digits, not those of the double that it becomes.
    const std::string confidence = textf("%g", static_cast<double>(extractor.confidence()));
    return {
        {"name", extractor.name()}, {"confidence", std::stod(confidence)}, {"device", device.name},
        {"flags", flags},           {"format", format_json(container)},    {"tracks", tracks}};
}

// ------------------------------------------------------------------ A file

Head head_of(const FlvFile& file)
{
    zoflv_inspect::HostSource source(file.source());
    return zoflv_inspect::read_head(source);
}

/// Fills the record. Throws Failure where nothing more can be found.
/// @param trouble  receives what could not be found although the file is open
void fill(Json* object, const std::string& path, bool entries, Session& session,
          std::string* trouble)
{
    const FlvFile file(path, session.log());
    const Head head = head_of(file);
    const auto metadata = read_metadata(file);
    size_t left_out = 0;
    const Json properties = properties_json(head, &left_out);
    (*object)["container"] = container_json(file, head);
    for (int i = 0; i < file.info().strm_cnt; ++i)
        (*object)["streams"].push_back(stream_json(file, head, i));
    (*object)["keyframes"] = keyframes_json(file, *metadata, entries, trouble);
    (*object)["metadata"] = metadata_json(*metadata, head);
    (*object)["properties"] = properties;
    (*object)["properties_left_out"] = left_out;
    try {
        const ExtractorPtr extractor = open_extractor(session.plugin(), path, session.log());
        (*object)["framework"] = framework_json(*extractor, session.device());
    } catch (const Failure& failure) {
        *trouble = failure.what();
    }
}

} // namespace

InfoRecord read_info(const std::string& path, bool entries, Session& session)
{
    InfoRecord record;
    record.object = {{"schema_version", schema_version},
                     {"file", path},
                     {"status", "ok"},
                     {"reason", nullptr},
                     {"container", nullptr},
                     {"streams", Json::array()},
                     {"keyframes", nullptr},
                     {"metadata", nullptr},
                     {"properties", nullptr},
                     {"properties_left_out", 0},
                     {"framework", nullptr}};
    const auto fail = [&](const char* status, int code, const std::string& why) {
        record.object["status"] = status;
        record.object["reason"] = why;
        record.code = code;
    };
    try {
        std::string trouble;
        fill(&record.object, path, entries, session, &trouble);
        if (!trouble.empty())
            fail("incomplete", EXIT_BAD_FILE, trouble);
    } catch (const Failure& failure) {
        fail(failure.code() == EXIT_BAD_FILE ? "refused" : "failed", failure.code(),
             failure.what());
    } catch (const std::bad_alloc&) {
        fail("failed", EXIT_BAD_FILE, "out of memory");
    }
    return record;
}
