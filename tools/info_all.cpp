// SPDX-License-Identifier: Apache-2.0
#include "tools/info_data.h"
#include "tools/info_text.h"

#include <algorithm>
#include <cstring>

namespace {

/// How values are shown, by their keys.
constexpr struct {
    const char* kind; ///< "none", "codec", "hex" or the unit; of an integer "time": 100 ns
    const char* keys;
} kinds[] = {
    // Titles and other values tell these.
    {"none", " index codec tracks schema_version file status reason sources entries "},
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
    {"frames", " frame_count "},
};

constexpr size_t longest = 400; ///< characters of a text from the file, which may have megabytes

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
        return kind == "hex" ? hex_text(value) : shortened(value, longest);
    if (kind == "codec")
        return codec_text(value.get<uint32_t>()) + textf(" (0x%x)", value.get<uint32_t>());
    if (kind == "time" && value.is_number_integer())
        return key == "duration" && value == 0 ? "unknown" : seconds(value) + " s";
    const std::string number =
        value.is_number_float() ? textf("%.15g", value.get<double>()) : value.dump();
    return kind.empty() ? number : number + ' ' + (kind == "time" ? "s" : kind);
}

/// Whose word a value is, where that is told: " (codec header)".
std::string source_text(const Json& object, const std::string& key)
{
    const auto sources = object.find("sources");
    if (sources == object.end() || !sources->contains(key))
        return {};
    return "  (" + (*sources)[key].get<std::string>() + ')';
}

/// Prints the values of an object, and those of objects in it as if they were its own.
/// @return the number of lines
int print_values(const Json& object)
{
    int lines = 0;
    for (const auto& [key, value] : object.items()) {
        if (value.is_object()) {
            lines += key == "sources" ? 0 : print_values(value);
            continue;
        }
        const std::string text = value_text(key, value);
        if (text.empty())
            continue;
        std::string label = key;
        std::replace(label.begin(), label.end(), '_', ' ');
        put(textf("    %-24s", label.c_str()) + text + source_text(object, key) + '\n');
        ++lines;
    }
    return lines;
}

void print_section(const std::string& title, const Json& object)
{
    put("  " + title + '\n');
    if (print_values(object) == 0)
        put("    none\n");
}

/// A property of the file, on a line of its own; what is in it with the names joined by dots.
/// @return the number of lines
int print_property(const std::string& name, const Json& value)
{
    constexpr size_t most_elements = 8;
    if (value.is_object()) {
        int lines = 0;
        for (const auto& [inner, part] : value.items())
            lines += print_property(name.empty() ? inner : name + '.' + inner, part);
        return lines;
    }
    std::string text;
    if (value.is_string()) {
        text = shortened(value, longest);
    } else if (value.is_array()) {
        text = textf("%zu values:", value.size());
        for (size_t i = 0; i < std::min(value.size(), most_elements); ++i)
            text += ' ' + (value[i].is_string()       ? shortened(value[i], longest)
                           : value[i].is_structured() ? std::string("{}")
                                                      : value[i].dump());
        text += value.size() > most_elements ? " ..." : "";
    } else {
        text = value.is_null() ? "no value" : value.dump();
    }
    put(textf("    %-24s", shortened(name, 200).c_str()) + ' ' + text + '\n');
    return 1;
}

void print_properties(const Json& record)
{
    put("  properties in the file\n");
    if (record["properties"].is_null() || print_property({}, record["properties"]) == 0)
        put("    none\n");
    if (record["properties_left_out"] != 0)
        put("    and " + record["properties_left_out"].dump() + " values more\n");
}

void print_index(const Json& keyframes)
{
    if (keyframes["status"] == "none") {
        put("  keyframe index\n    none\n");
        return;
    }
    print_section("keyframe index", keyframes);
    if (keyframes["status"] == "rejected")
        put("    not used: " + keyframes["reason"].get<std::string>() + '\n');
}

} // namespace

void print_all(const Json& record)
{
    put(printable(record["file"].get<std::string>()) + '\n');
    print_section("container", record["container"]);
    for (const Json& stream : record["streams"])
        print_section("stream " + stream["index"].dump(), stream);
    print_index(record["keyframes"]);
    print_section("metadata", record["metadata"]);
    print_properties(record);
    if (record["framework"].is_null())
        return;
    print_section("framework", record["framework"]);
    for (const Json& track : record["framework"]["tracks"])
        print_section("framework, track " + track["index"].dump(), track);
}
