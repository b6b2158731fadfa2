// SPDX-License-Identifier: Apache-2.0
#include "inspect/words.h"
#include "tools/info_text.h"

#include <cmath>
#include <iterator>

namespace {

constexpr double ticks_per_second = 1e7; // of the container's times

std::string file_line(const Json& container)
{
    const int64_t size = container["size"];
    const int64_t duration = container["duration"];
    std::string line = zoflv_inspect::grouped(size) + (size == 1 ? " byte, " : " bytes, ");
    line += duration > 0 ? seconds(duration) + " s by the metadata" : "duration unknown";
    if (duration > 0) {
        const double rate =
            static_cast<double>(size) * 8 * ticks_per_second / static_cast<double>(duration) / 1000;
        line += textf(rate < 9.95 ? ", %.1f kbit/s" : ", %.0f kbit/s", rate);
    }
    if (container["flv_version"].is_number())
        line += ", FLV " + container["flv_version"].dump();
    if (container["made_by"].is_string())
        line += ", made by " + shortened(container["made_by"], 60);
    return line;
}

/// Codecs by what they are called, by what the demuxer calls them.
std::string codec_title(const std::string& codec)
{
    constexpr const char* titles[][2] = {
        {"h264", "H.264"},
        {"FLV1", "Sorenson H.263"},
        {"scrn", "screen video"},
        {"scr2", "screen video 2"},
        {"vp6 ", "VP6"},
        {"vp6a", "VP6 with alpha"},
        {"jpeg", "JPEG"},
        {"lpcm", "PCM"},
        {"llpc", "PCM"},
        {"apcm", "ADPCM"},
        {"nm16", "Nellymoser"},
        {"nm8,", "Nellymoser"},
        {"nm  ", "Nellymoser"},
        {"alaw", "G.711 A-law"},
        {"mlaw", "G.711 mu-law"},
        {"spx,", "Speex"},
        {"MPEG audio", "MPEG audio"},
    };
    for (const auto& [name, title] : titles) {
        if (codec == name)
            return title;
    }
    return codec;
}

std::string video_text(const Json& stream, const Json& metadata)
{
    std::string text = ", " + stream["width"].dump() + " x " + stream["height"].dump();
    if (stream["sources"]["width"] == "metadata")
        text += " by the metadata";
    const Json& rate = metadata["frame_rate"];
    if (rate.is_number() && rate.get<double>() > 0)
        text += textf(", %.5g frames/s", rate.get<double>());
    return text;
}

std::string audio_text(const Json& stream)
{
    const int channels = stream["channels"];
    std::string text = textf(", %.5g kHz, ", stream["sample_rate"].get<double>() / 1000);
    return text + (channels == 1   ? "mono"
                   : channels == 2 ? "stereo"
                                   : std::to_string(channels) + " channels");
}

/// What becomes of a stream in the framework: its tracks are the streams, in their order.
std::string verdict_text(const Json& framework, size_t stream)
{
    if (framework.is_null() || stream >= framework["tracks"].size())
        return "; the plugin gives no track";
    const Json& error = framework["tracks"][stream]["error"];
    return error.is_null() ? "" : "; not played: " + error.get<std::string>();
}

std::string index_text(const Json& keyframes)
{
    if (keyframes["status"] != "used")
        return keyframes["status"] == "none"
                   ? "none"
                   : "not used: " + keyframes["reason"].get<std::string>();
    std::string text = zoflv_inspect::grouped(keyframes["count"]) + " keyframes";
    if (keyframes["average_interval"].is_number())
        text += ", one every " + seconds(keyframes["average_interval"]) + " s";
    return text + ", the last at " + seconds(keyframes["last_time"]) + " s";
}

std::string time_text(const Json& time_us)
{
    return time_us.is_number() ? seconds(time_us.get<int64_t>() * 10) : "-";
}

} // namespace

std::string shortened(const Json& text, size_t most)
{
    const std::string line = printable(text.get<std::string>());
    size_t end = most;
    while (end < line.size() && (static_cast<unsigned char>(line[end]) & 0xC0) == 0x80)
        ++end; // not inside a character
    return line.size() > end ? line.substr(0, end) + "..." : line;
}

void print_brief(const Json& record)
{
    put(printable(record["file"].get<std::string>()) + "\n  " + file_line(record["container"]) +
        '\n');
    size_t index = 0;
    for (const Json& stream : record["streams"]) {
        const bool video = stream["type"] == "video";
        std::string line = textf("  track %zu  ", index) + (video ? "video  " : "audio  ");
        const std::string profile =
            stream["profile"].is_string() ? stream["profile"].get<std::string>() : std::string();
        if (video || profile.empty())
            line += codec_title(stream["codec"]) + (profile.empty() ? "" : " ") + profile;
        else
            line += profile; // "AAC LC": the codec is in it
        line += video ? video_text(stream, record["metadata"]) : audio_text(stream);
        put(line + verdict_text(record["framework"], index) + '\n');
        ++index;
    }
    put("  index    " + index_text(record["keyframes"]) + '\n');
}

void print_entries(const Json& record)
{
    const Json& keyframes = record["keyframes"];
    put(printable(record["file"].get<std::string>()) + ": index " + index_text(keyframes) + '\n');
    if (keyframes["entries"].empty())
        return;
    put(textf("%8s %16s %16s\n", "entry", "time (s)", "offset"));
    size_t index = 0;
    for (const Json& entry : keyframes["entries"])
        put(textf("%8zu %16s %16s\n", index++, time_text(entry["time_us"]).c_str(),
                  entry["offset"].is_number() ? entry["offset"].dump().c_str() : "-"));
}
