// SPDX-License-Identifier: Apache-2.0
#include "tools/check_csv.h"

#include <cstring>

namespace {

struct Column {
    const char* name;
    const char* track; ///< "video" or "audio": a value of that track
    const char* path;  ///< in the record, or in the track
};
constexpr Column columns[] = {
    {"file", nullptr, "/file"},
    {"status", nullptr, "/verdict/status"},
    {"cause", nullptr, "/verdict/cause"},
    {"text", nullptr, "/verdict/text"},
    {"curable", nullptr, "/verdict/curable"},
    {"size", nullptr, "/size"},
    {"duration_us", nullptr, "/duration_us"},
    {"lost_us", nullptr, "/verdict/lost_us"},
    {"made_by", nullptr, "/made_by"},
    {"device", nullptr, "/verdict/device"},
    {"video_mime", "video", "/mime"},
    {"video_expected", "video", "/frames/expected"},
    {"video_delivered", "video", "/frames/delivered"},
    {"audio_mime", "audio", "/mime"},
    {"audio_expected", "audio", "/frames/expected"},
    {"audio_delivered", "audio", "/frames/delivered"},
};
// After them, the codes of the findings of a level.
constexpr const char* levels[] = {"error", "warning", "notice"};

std::string cell(std::string text)
{
    if (!text.empty() && std::strchr("=+-@\t\r\n", text[0]))
        text.insert(text.begin(), '\'');
    text = printable(text); // without line ends
    if (text.find_first_of(",;\"") == std::string::npos && text.find(' ') == std::string::npos)
        return text;
    std::string quoted = "\"";
    for (const char c : text)
        quoted.append(c == '"' ? 2 : 1, c);
    return quoted + '"';
}

std::string cell(const Json& value)
{
    if (value.is_null())
        return {};
    return value.is_string() ? cell(value.get<std::string>()) : value.dump();
}

/// Null when the record has no such track.
const Json* track_of(const Json& record, const char* type)
{
    for (const Json& track : record["verdict"]["tracks"]) {
        if (track["type"] == type)
            return &track;
    }
    return nullptr;
}

std::string codes_of(const Json& record, const char* level)
{
    std::string codes;
    for (const Json& finding : record["findings"]) {
        if (finding["level"] == level)
            codes += (codes.empty() ? "" : " ") + finding["code"].get<std::string>();
    }
    return codes;
}

} // namespace

std::string check_csv_header()
{
    std::string row;
    for (const Column& column : columns)
        row += column.name + std::string(",");
    return row + "errors,warnings,notices\n";
}

std::string check_csv_row(const Json& record)
{
    std::string row;
    for (const Column& column : columns) {
        const Json* const object = column.track ? track_of(record, column.track) : &record;
        const Json::json_pointer path(column.path);
        if (object && object->contains(path))
            row += cell(object->at(path));
        row += ',';
    }
    for (const char* const level : levels)
        row += cell(codes_of(record, level)) + (level == levels[2] ? "\n" : ",");
    return row;
}
