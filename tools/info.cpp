// SPDX-License-Identifier: Apache-2.0
#include "tools/commands.h"
#include "tools/file.h"
#include "tools/scan.h"

#include <algorithm>
#include <cstring>
#include <type_traits>
#include <utility>
#include <zodevice/zo_media_formats.h>

namespace {

// ------------------------------------------------------------ For programs

std::string codec_name(uint32_t code)
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

Json container_json(const FlvFile& file)
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
            {"regions", regions}};
}

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

Json stream_json(const FlvFile& file, int stream)
{
    const bool video = file.info().strm_type[stream] == ZOFLV_TAG_VIDEO;
    const uint32_t code = file.info().codec[stream];
    Json object = {{"index", stream},
                   {"type", video ? "video" : "audio"},
                   {"codec", codec_name(code)},
                   {"codec_code", code}};
    if (video) {
        ZOFLVD_INFO_VID v{};
        zoflvd_get_info_vid(file.handle(), stream, &v);
        object.update({{"recognised", v.valid != 0},
                       {"width", v.width},
                       {"height", v.height},
                       {"frame_rate", v.frame_rate},
                       {"frame_count", v.frm_cnt},
                       {"byte_rate", v.byte_rate},
                       {"max_frame_size", v.max_frm_size}});
    } else {
        ZOFLVD_INFO_AUD a{};
        zoflvd_get_info_aud(file.handle(), stream, &a);
        object.update({{"recognised", a.valid != 0},
                       {"sample_rate", a.sample_rate},
                       {"channels", a.channels},
                       {"bits_per_sample", a.bits_per_sample},
                       {"bit_rate", a.bit_rate},
                       {"byte_rate", a.byte_rate},
                       {"max_frame_size", a.max_frm_size}});
    }
    object["codec_data"] = codec_data_json(file, stream);
    return object;
}

/// JSON has no infinity and no NaN: such values become null.
Json metadata_json(const FlvFile& file)
{
    const auto metadata = read_metadata(file);
    const ZOFLVD_METADATA& m = *metadata;
    return {{"has_keyframes", m.has_keyframes != 0},
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
}

/// @param trouble  receives the reason when the video stream could not be opened for its index
Json keyframes_json(const FlvFile& file, std::string* trouble)
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

    Json first, last, interval; // null
    if (!table.empty()) {
        first = table.front().time;
        last = table.back().time;
    }
    int64_t span = 0;
    if (table.size() > 1 && !__builtin_sub_overflow(table.back().time, table.front().time, &span))
        interval = span / static_cast<int64_t>(table.size() - 1);
    return {{"count", table.size()},
            {"first_time", first},
            {"last_time", last},
            {"average_interval", interval}};
}

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

/// Why a track cannot be played; null when it can.
Json error_json(const zoflv_host::Format& format)
{
    const int32_t type = format.int32(android::AMEDIAFORMAT_KEY_ERROR_TYPE).value_or(0);
    switch (type) {
    case 0:
        return nullptr;
    case -1002:
        return "codec not supported by the device";
    case -1003:
        return "no configuration in the codec data or the first frames";
    case -1004:
        return "picture larger than the device's limit";
    default:
        return textf("error type %d", type);
    }
}

Json framework_json(zoflv_host::Extractor& extractor)
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
            {{"index", i}, {"error", error_json(format)}, {"format", format_json(format)}});
    }
    // A float's own digits, not those of the double that it becomes.
    const std::string confidence = textf("%g", static_cast<double>(extractor.confidence()));
    return {{"name", extractor.name()},
            {"confidence", std::stod(confidence)},
            {"flags", flags},
            {"format", format_json(container)},
            {"tracks", tracks}};
}

// -------------------------------------------------------------- For people

/// How values are shown, by their keys.
constexpr struct {
    const char* kind; ///< "none", "codec", "hex" or the unit; of an integer "time": 100 ns
    const char* keys;
} kinds[] = {
    {"none", " index codec tracks "}, // titles and other values tell
    {"codec", " codec_code fourcc track-fourcc "},
    {"hex", " codec_data csd-0 "},
    {"time", " duration first_time last_time average_interval "},
    {"s", " last_timestamp last_keyframe_timestamp audio_delay "},
    {"us", " durationUs i-frame-avg-interval-us "},
    {"bytes", " size file_size data_size video_size audio_size max_frame_size max-input-size "},
    {"bytes/s", " byte_rate "},
    {"bits/s", " bit_rate "},
    {"kbit/s", " video_data_rate audio_data_rate "},
    {"bits", " bits_per_sample bits-per-sample "},
    {"Hz", " sample_rate sample-rate "},
    {"pixels", " width height display-width display-height "},
    {"frames/s", " frame_rate frame-rate "},
    {"by the metadata", " frame_count "},
};

/// In lines, and not without end: the codec data of MPEG audio is a whole frame, of an unknown
/// codec perhaps megabytes.
std::string hex_text(const std::string& digits)
{
    constexpr size_t per_line = 48, shown = 10 * per_line;
    std::string text = digits.empty() ? "none" : textf("%zu bytes", digits.size() / 2);
    for (size_t at = 0; at < std::min(digits.size(), shown); at += per_line)
        text += "\n      " + digits.substr(at, per_line);
    return digits.size() > shown ? text + "\n      ..." : text;
}

/// Empty for what is not shown.
std::string value_text(const std::string& key, const Json& value)
{
    std::string kind;
    for (const auto& row : kinds) {
        if (std::strstr(row.keys, (' ' + key + ' ').c_str()))
            kind = row.kind;
    }
    if (kind == "none" || value.is_null())
        return {};
    if (value.is_structured()) {
        std::string text;
        for (const auto& [name, part] : value.items()) {
            text += text.empty() ? "" : ", ";
            text += value.is_object() ? name + ' ' : "";
            text += value_text(name, part);
        }
        return text;
    }
    if (value.is_boolean())
        return value.get<bool>() ? "yes" : "no";
    if (value.is_string())
        return kind == "hex" ? hex_text(value) : printable(value.get<std::string>());
    if (kind == "codec")
        return codec_name(value.get<uint32_t>()) + textf(" (0x%x)", value.get<uint32_t>());
    if (kind == "time" && value.is_number_integer())
        return key == "duration" && value == 0 ? "unknown" : seconds(value) + " s";
    const std::string number =
        value.is_number_float() ? textf("%.15g", value.get<double>()) : value.dump();
    return kind.empty() ? number : number + ' ' + (kind == "time" ? "s" : kind);
}

/// Prints the values of an object, and those of objects in it as if they were its own.
/// @param zeros  show them too; else they stand for what is absent
/// @return the number of lines
int print_values(const Json& object, bool zeros)
{
    int lines = 0;
    for (const auto& [key, value] : object.items()) {
        if (value.is_object()) {
            lines += print_values(value, zeros);
            continue;
        }
        const std::string text = value_text(key, value);
        if (text.empty() || (!zeros && (value == 0 || value == false)))
            continue;
        std::string label = key;
        std::replace(label.begin(), label.end(), '_', ' ');
        put(textf("    %-24s", label.c_str()) + text + '\n');
        ++lines;
    }
    return lines;
}

void print_section(const std::string& title, const Json& object, bool zeros = true)
{
    put("  " + title + '\n');
    if (print_values(object, zeros) == 0)
        put("    none\n");
}

void print_text(const Json& object)
{
    put(printable(object["file"].get<std::string>()) + '\n');
    print_section("container", object["container"]);
    for (const Json& stream : object["streams"])
        print_section("stream " + stream["index"].dump(), stream);
    print_section("keyframe index", object["keyframes"],
                  !object["keyframes"]["first_time"].is_null());
    print_section("metadata", object["metadata"], false);
    if (object["framework"].is_null())
        return;
    print_section("framework", object["framework"]);
    for (const Json& track : object["framework"]["tracks"])
        print_section("framework, track " + track["index"].dump(), track);
}

void print_info(const std::string& path, bool json, bool scan, const PluginPtr& plugin, LogTap& log)
{
    const FlvFile file(path, log);
    std::string trouble;
    Json object = {{"file", path}, {"container", container_json(file)}, {"streams", Json::array()}};
    for (int i = 0; i < file.info().strm_cnt; ++i)
        object["streams"].push_back(stream_json(file, i));
    object["keyframes"] = keyframes_json(file, &trouble);
    object["metadata"] = metadata_json(file);
    object["framework"] = nullptr;
    try {
        object["framework"] = framework_json(*open_extractor(plugin, path, log));
    } catch (const Failure& failure) {
        trouble = failure.what();
    }
    if (json && scan)
        object["scan"] = scan_json(scan_file(path, false));
    if (json)
        put_line(object);
    else
        print_text(object);
    if (!trouble.empty())
        throw Failure(EXIT_BAD_FILE, trouble);
}

} // namespace

Command add_info(CLI::App& app)
{
    struct Options {
        std::vector<std::string> files;
        bool json = false;
        bool scan = false;
    };
    constexpr Help help = {
        "File, streams, codec data, keyframe index, metadata, and the framework's view",
        "  zoflv info recording.flv\n"
        "  zoflv info --json *.flv | jq -r '[.file, .container.duration] | @tsv'",
        "",
    };
    const auto options = std::make_shared<Options>();
    CLI::App* command = add_command(app, "info", help);
    add_files(command, &options->files);
    command->add_flag("--scan", options->scan,
                      "Count over the whole file too: duration, frames, rates, keyframes, damage");
    add_json(command, &options->json);
    return {command, [options](Session& session) {
                const PluginPtr& plugin = session.plugin();
                int worst = EXIT_FINE;
                for (const std::string& path : options->files) {
                    attempt(&worst, path, [&] {
                        print_info(path, options->json, options->scan, plugin, session.log());
                    });
                    if (options->scan && !options->json) // of a file that is refused too
                        attempt(&worst, path,
                                [&] { print_scan(scan_file(path, !session.quiet())); });
                }
                return worst;
            }};
}
