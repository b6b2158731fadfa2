// SPDX-License-Identifier: Apache-2.0
#include "tools/scan.h"

#include "inspect/codec_names.h"
#include "inspect/walker.h"
#include "inspect/words.h"
#include "tools/file.h"
#include "tools/progress.h"

#include <cmath>
#include <cstdlib>

using namespace zoflv_inspect;

namespace {

constexpr int64_t US_PER_MS = 1000;

Json number_json(const std::optional<double>& value)
{
    return value && std::isfinite(*value) ? Json(*value) : Json(nullptr);
}

Json time_json(bool valid, int64_t ms)
{
    return valid ? Json(ms * US_PER_MS) : Json(nullptr);
}

double per_second(uint64_t count, int64_t duration_ms)
{
    return static_cast<double>(count) * 1000.0 / static_cast<double>(duration_ms);
}

// Bits per second; nothing of a stream that takes no time.
std::optional<double> bit_rate(const StreamScan& stream)
{
    const int64_t duration = stream.duration_ms();
    if (duration <= 0)
        return std::nullopt;
    return std::round(per_second(stream.frame_bytes * 8, duration));
}

std::optional<double> frame_rate(const StreamScan& stream)
{
    const int64_t duration = stream.duration_ms();
    if (duration <= 0)
        return std::nullopt;
    return std::round(per_second(stream.frames, duration) * 1000) / 1000;
}

Json spot_json(const Spot& spot)
{
    if (spot.offset < 0)
        return nullptr;
    return {{"by_us", spot.value * US_PER_MS},
            {"offset", spot.offset},
            {"dts_us", spot.dts_ms * US_PER_MS}};
}

Json keyframes_json(const KeyframeScan& keys)
{
    const bool any = keys.count > 0;
    const bool spaced = keys.spaces > 0;
    return {
        {"count", keys.count},
        {"first_dts_us", time_json(any, keys.first_dts_ms)},
        {"last_dts_us", time_json(any, keys.last_dts_ms)},
        {"shortest_us", time_json(spaced, keys.shortest_ms)},
        {"average_us", spaced ? Json(std::llround(keys.average_ms() * US_PER_MS)) : Json(nullptr)},
        {"longest", spot_json(keys.longest)}};
}

Json stream_json(const StreamScan& s, bool video)
{
    const bool any = s.frames > 0;
    Json codecs = Json::array();
    for (const CodecCount& c : s.codecs)
        codecs.push_back(
            {{"codec", codec_name(video, c.codec)}, {"tags", c.tags}, {"offset", c.offset}});
    Json configs = Json::array();
    for (const ConfigCount& c : s.configurations)
        configs.push_back({{"offset", c.offset},
                           {"dts_us", c.dts_ms * US_PER_MS},
                           {"size", c.size},
                           {"tags", c.tags}});
    Json object = {{"tags", s.tags},
                   {"bytes", s.bytes},
                   {"frames", s.frames},
                   {"frame_bytes", s.frame_bytes},
                   {"largest_frame", s.largest_frame},
                   {"empty", s.empty},
                   {"ends_of_sequence", s.ends},
                   {"encrypted", s.filtered},
                   {"first_dts_us", time_json(any, s.first_dts_ms)},
                   {"last_dts_us", time_json(any, s.last_dts_ms)},
                   {"min_dts_us", time_json(any, s.min_dts_ms)},
                   {"max_dts_us", time_json(any, s.max_dts_ms)},
                   {"min_pts_us", time_json(any, s.min_pts_ms)},
                   {"max_pts_us", time_json(any, s.max_pts_ms)},
                   {"duration_us", time_json(any, s.duration_ms())},
                   {"frame_rate", number_json(frame_rate(s))},
                   {"bit_rate", number_json(bit_rate(s))},
                   {"codecs", codecs},
                   {"configurations", configs},
                   {"other_configurations", s.configurations.others},
                   {"negative_times", s.negative_times},
                   {"steps_back", s.steps.back},
                   {"largest_step_back", spot_json(s.steps.largest_back)},
                   {"gaps", s.steps.gaps},
                   {"largest_gap", spot_json(s.steps.largest_gap)},
                   {"repeated_times", s.steps.repeats}};
    if (video)
        object["keyframes"] = keyframes_json(s.keyframes);
    return object;
}

Json lost_json(const Scan& scan)
{
    Json ranges = Json::array();
    for (const LostRange& lost : scan.lost)
        ranges.push_back({{"offset", lost.offset}, {"size", lost.size}});
    return {{"ranges", scan.lost_ranges}, {"bytes", scan.lost_bytes}, {"first", ranges}};
}

// -------------------------------------------------------------- For people

std::string ms_text(int64_t ms)
{
    return seconds(ms * 10000) + " s";
}

void put_row(const char* what, const std::string& counted, const std::string& claimed = {})
{
    put(textf("    %-18s", what) + counted +
        (claimed.empty() ? "" : "  (metadata: " + claimed + ")") + '\n');
}

std::string claim_text(const std::optional<double>& value, const char* unit)
{
    return value ? textf("%.15g%s", *value, unit) : "nothing";
}

std::string at_text(const Spot& spot)
{
    return textf(" at byte %lld, ", static_cast<long long>(spot.offset)) + ms_text(spot.dts_ms);
}

void print_steps(const StreamScan& s)
{
    if (s.steps.back > 0)
        put_row("times go back", counted(s.steps.back, "time") + ", at most " +
                                     ms_text(-s.steps.largest_back.value) +
                                     at_text(s.steps.largest_back));
    if (s.steps.gaps > 0)
        put_row("gaps", counted(s.steps.gaps, "gap") + " above 1 s, at most " +
                            ms_text(s.steps.largest_gap.value) + at_text(s.steps.largest_gap));
    if (s.negative_times > 0)
        put_row("negative times", counted(s.negative_times, "tag"));
}

void print_keyframes(const Scan& scan)
{
    const KeyframeScan& keys = scan.video.keyframes;
    std::string text = textf("%llu", static_cast<unsigned long long>(keys.count));
    if (keys.spaces > 0)
        text += textf(", every %.3f s", keys.average_ms() / 1000) + " (" +
                ms_text(keys.shortest_ms) + " to " + ms_text(keys.longest.value) + ")";
    put_row("keyframes", text,
            !scan.claims.found          ? ""
            : scan.claims.index_entries ? textf("%u in the index", *scan.claims.index_entries)
                                        : "no index");
}

void print_stream(const Scan& scan, bool video)
{
    const StreamScan& s = video ? scan.video : scan.audio;
    if (s.tags == 0)
        return;
    std::string codecs;
    for (const CodecCount& c : s.codecs)
        codecs += (codecs.empty() ? "" : ", ") + printable(codec_name(video, c.codec));
    put(std::string("  ") + (video ? "video, " : "audio, ") + codecs + '\n');
    const auto rate = frame_rate(s);
    const auto bits = bit_rate(s);
    const Claims& claims = scan.claims;
    put_row("frames",
            counted(s.frames, "frame") + (rate ? textf(", %.3f frames/s", *rate) : std::string()),
            video && claims.found ? claim_text(claims.framerate, " frames/s") : "");
    if (s.frames > 0)
        put_row("time", ms_text(s.min_dts_ms) + " to " + ms_text(s.max_dts_ms));
    if (bits)
        put_row("rate", textf("%.3f kbit/s", *bits / 1000),
                claims.found
                    ? claim_text(video ? claims.videodatarate : claims.audiodatarate, " kbit/s")
                    : "");
    if (video)
        print_keyframes(scan);
    if (s.configs > 0)
        put_row("configurations",
                counted(s.configs, "tag") + textf(", %zu different", s.configurations.count));
    if (s.empty > 0)
        put_row("without payload", counted(s.empty, "tag"));
    if (s.filtered > 0)
        put_row("encrypted", counted(s.filtered, "tag"));
    print_steps(s);
}

void print_links(const Scan& scan)
{
    uint64_t wrong = 0;
    std::string kinds;
    for (size_t i = 1; i < scan.links.size(); ++i) {
        if (scan.links[i] == 0)
            continue;
        wrong += scan.links[i];
        kinds += (kinds.empty() ? "" : ", ") + std::string(link_name(static_cast<Link>(i)));
    }
    if (wrong > 0)
        put_row("PreviousTagSize", "wrong after " + counted(wrong, "tag") + " (" + kinds + ")");
}

} // namespace

Scan scan_file(const std::string& path, bool progress)
{
    const auto data = open_source(path);
    HostSource source(*data);
    TagWalker walker(source);
    Scanner scanner;
    Progress shown(path, walker.file_size(), progress);
    while (const Item* item = walker.next()) {
        scanner.see(*item, walker);
        if (item->kind == ItemKind::TAG)
            shown.at(item->tag.offset);
    }
    return scanner.scan();
}

Json scan_json(const Scan& scan)
{
    Json links = Json::object();
    for (size_t i = 0; i < scan.links.size(); ++i)
        links[link_name(static_cast<Link>(i))] = scan.links[i];
    const Claims& claims = scan.claims;
    Json claimed; // null
    if (claims.found)
        claimed = {
            {"duration", number_json(claims.duration)},
            {"frame_rate", number_json(claims.framerate)},
            {"file_size", number_json(claims.filesize)},
            {"video_data_rate", number_json(claims.videodatarate)},
            {"audio_data_rate", number_json(claims.audiodatarate)},
            {"index_entries", claims.index_entries ? Json(*claims.index_entries) : Json(nullptr)}};
    const bool any = scan.has_frames();
    return {{"size", scan.end.offset},
            {"complete", scan.end.kind == EndKind::AFTER_TAG},
            {"start_us", time_json(any, scan.start_ms())},
            {"duration_us", time_json(any, scan.duration_ms())},
            {"claimed", claimed},
            {"video", scan.video.tags > 0 ? stream_json(scan.video, true) : Json(nullptr)},
            {"audio", scan.audio.tags > 0 ? stream_json(scan.audio, false) : Json(nullptr)},
            {"script_tags", scan.script.tags},
            {"other_tags", scan.other_tags},
            {"inner_headers", scan.inner_headers},
            {"stream_ids_not_0", scan.stream_ids},
            {"furthest_apart", spot_json(scan.furthest_apart)},
            {"previous_tag_sizes", links},
            {"lost", lost_json(scan)}};
}

void print_scan(const Scan& scan)
{
    const Claims& claims = scan.claims;
    put("  counted over the whole file\n");
    put_row("size", counted(static_cast<uint64_t>(scan.end.offset), "byte"),
            claims.filesize ? claim_text(claims.filesize, "") : "");
    if (scan.has_frames()) {
        put_row("duration", ms_text(scan.duration_ms()),
                claims.found ? claim_text(claims.duration, " s") : "");
        put_row("start", ms_text(scan.start_ms()));
    }
    if (scan.furthest_apart.offset >= 0)
        put_row("audio - video",
                "at most " + ms_text(scan.furthest_apart.value) + at_text(scan.furthest_apart));
    print_links(scan);
    if (scan.inner_headers > 0)
        put_row("FLV inside", counted(scan.inner_headers, "header"));
    if (scan.lost_ranges > 0)
        put_row("lost", counted(static_cast<uint64_t>(scan.lost_bytes), "byte") + " in " +
                            counted(scan.lost_ranges, "range"));
    if (scan.end.kind == EndKind::CUT_TAG)
        put_row("end", "inside a tag");
    print_stream(scan, true);
    print_stream(scan, false);
}
