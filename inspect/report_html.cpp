// SPDX-License-Identifier: Apache-2.0
#include "inspect/report_html.h"

#include "inspect/codec_names.h"
#include "inspect/report_pictures.h"
#include "inspect/report_style.h"
#include "inspect/report_writer.h"
#include "inspect/words.h"

#include <algorithm>
#include <array>

namespace zoflv_inspect {

namespace {

Markup page_begin(std::string_view title)
{
    Markup out;
    out.raw("<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">\n"
            "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; "
            "style-src 'unsafe-inline'\">\n"
            "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
            "<meta name=\"color-scheme\" content=\"light dark\">\n<title>")
        .text(title)
        .raw("</title>\n<style>\n")
        .raw(REPORT_STYLE)
        .raw("</style></head>\n<body>\n");
    return out;
}

Markup status_badge(std::string_view status)
{
    Markup out;
    return out.raw("<strong class=\"status ").text(status).raw("\">").text(status).raw("</strong>");
}

/// The sentence without the status in front, which the badge has.
std::string cause_of(const Verdict& verdict)
{
    const std::string sentence = verdict.sentence();
    const size_t colon = sentence.find(": ");
    return colon == std::string::npos ? sentence : sentence.substr(colon + 2);
}

std::string profile_text(const DeviceProfile& device)
{
    std::string text = "Judged for the device profile \"" + device.name + "\", which plays ";
    for (const std::string& mime : device.mime_types)
        text += (&mime == &device.mime_types.front() ? "" : ", ") + mime;
    const auto size = [](const PictureSize& picture) {
        return std::to_string(picture.width) + " x " + std::to_string(picture.height);
    };
    return text + "; pictures of up to " + size(device.largest_landscape) + " or upright " +
           size(device.largest_portrait) + " pixels.";
}

Markup head_of(const ReportData& data)
{
    const Verdict& verdict = data.verdict;
    Markup out;
    out.raw("<header><h1>").text(data.name).raw("</h1>\n<p class=\"verdict\">");
    out.add(status_badge(name_of(verdict.status)))
        .raw(" ")
        .prose(cause_of(verdict))
        .raw("</p>\n<p>");
    std::string facts = grouped(verdict.size) + " bytes";
    if (data.scan.has_frames())
        facts += ", " + clock_text(static_cast<double>(data.scan.duration_ms()), 3) + " of media";
    if (data.scan.claims.duration)
        facts += " (" + clock_text(*data.scan.claims.duration * 1000, 3) + " by the metadata)";
    if (data.scan.lost_bytes > 0)
        facts += ", " + bytes_text(static_cast<double>(data.scan.lost_bytes)) + " lost";
    out.text(facts + ".").raw("</p>\n<p>").text(profile_text(data.device)).raw("</p></header>\n");
    return out;
}

Markup contents()
{
    Markup out;
    return out.raw(
        "<nav aria-label=\"Contents\"><ul>"
        "<li><a href=\"#tracks\">Tracks</a></li><li><a href=\"#findings\">Findings</a></li>"
        "<li><a href=\"#rate\">Bit rate</a></li><li><a href=\"#times\">Times</a></li>"
        "<li><a href=\"#distance\">Audio and video</a></li>"
        "<li><a href=\"#spacing\">Keyframes</a></li><li><a href=\"#seeks\">Seeks</a></li>"
        "<li><a href=\"#metadata\">Metadata</a></li></ul></nav>\n");
}

std::string codec_of(const StreamScan& stream, bool video)
{
    return stream.codecs.count > 0 ? codec_name(video, stream.codecs.rows[0].codec) : "none";
}

std::string format_of(const TrackReport& track)
{
    if (track.index < 0)
        return "no track";
    std::string text = track.mime;
    if (track.width > 0)
        text += ", " + std::to_string(track.width) + " x " + std::to_string(track.height);
    if (track.sample_rate > 0)
        text += ", " + std::to_string(track.sample_rate) + " Hz, " +
                std::to_string(track.channels) + (track.channels == 1 ? " channel" : " channels");
    return text;
}

std::string plays_text(const TrackReport& track)
{
    if (track.usable())
        return track.frames.complete() ? "yes" : "in part";
    return "no";
}

/// The rows of the table of tracks: what each says of a stream.
constexpr std::array TRACK_ROWS = {"codec", "format published", "plays", "frames",
                                   "bytes", "seeks right"};

std::array<std::string, TRACK_ROWS.size()> track_column(const TrackReport& track,
                                                        const StreamScan& stream)
{
    const SeekTest* const seeks = track.seeks_in(SeekMode::PREVIOUS);
    const auto number = [](uint64_t count) { return grouped(static_cast<int64_t>(count)); };
    return {codec_of(stream, track.kind == Kind::VIDEO),
            format_of(track),
            plays_text(track),
            number(track.frames.delivered) + " of " + number(track.frames.expected),
            number(stream.frame_bytes),
            seeks ? number(seeks->hits()) + " of " + number(seeks->landings.size()) : "not tried"};
}

/// A column for each stream: there are two at most, and a narrow page has room for them.
Markup tracks_of(const ReportData& data)
{
    Markup out = section_begin("tracks", "Tracks");
    const DeviceReport& device = data.verdict.device;
    std::vector<std::string_view> heads = {"stream"};
    std::vector<std::array<std::string, TRACK_ROWS.size()>> columns;
    for (const TrackReport* track : {&device.video, &device.audio}) {
        if (track->index < 0 && track->tags == 0)
            continue;
        const bool video = track->kind == Kind::VIDEO;
        heads.emplace_back(video ? "video" : "audio");
        columns.push_back(track_column(*track, video ? data.scan.video : data.scan.audio));
    }
    if (columns.empty())
        return out.raw("<p>There is neither audio nor video.</p>\n").add(section_end());
    Table table("What the file has, and what the device gets of it", heads);
    for (size_t row = 0; row < TRACK_ROWS.size(); ++row) {
        table.cell(TRACK_ROWS[row]);
        for (const auto& column : columns)
            table.cell(column[row]);
    }
    return out.add(table.end()).add(section_end());
}

std::string place_of(const Finding& finding)
{
    std::string text;
    if (finding.offset != NO_OFFSET)
        text = "First at byte " + grouped(finding.offset);
    if (finding.time_us != NO_TIME)
        text += (text.empty() ? "First at " : ", ") +
                clock_text(static_cast<double>(finding.time_us) / 1000, 3);
    return text.empty() ? text : text + ".";
}

Markup findings_of(const ReportData& data)
{
    Markup out = section_begin("findings", "Findings");
    if (data.verdict.findings.empty())
        return out.raw("<p>Nothing is wrong or odd.</p>\n").add(section_end());
    out.raw("<ul class=\"findings\">\n");
    for (const Finding& finding : data.verdict.findings) {
        const FindingRule& rule = finding.info();
        out.raw("<li><h3><span class=\"level ").text(name_of(finding.level)).raw("\">");
        out.text(name_of(finding.level))
            .raw("</span> <code>")
            .text(rule.code)
            .raw("</code></h3>\n<p>");
        out.prose(finding.text() + ". " + place_of(finding)).raw("</p>\n");
        if (finding.level == Level::ERROR && rule.elsewhere)
            out.raw("<p>It may play elsewhere, because ").text(rule.elsewhere).raw(".</p>\n");
        out.raw("<p><b>What to do:</b> ").prose(rule.remedy).raw("</p></li>\n");
    }
    return out.raw("</ul>\n").add(section_end());
}

Markup metadata_of(const ReportData& data)
{
    Markup out = section_begin("metadata", "Metadata");
    if (data.properties.empty())
        return out.raw("<p>The file has none.</p>\n").add(section_end());
    Table table("What the file says of itself", {"property", "value"});
    for (const ReportProperty& property : data.properties)
        table.cell(property.name).cell(property.value);
    out.add(table.end());
    if (data.more_properties > 0)
        out.raw("<p>")
            .text(grouped(static_cast<int64_t>(data.more_properties)) + " more are left out.")
            .raw("</p>\n");
    return out.add(section_end());
}

std::string index_summary(const std::vector<ReportRow>& rows)
{
    std::string text = counted(rows.size(), "file");
    const char* separator = ": ";
    for (const char* const status : {"sound", "partial", "refused", "failed"}) {
        const auto count = std::count_if(
            rows.begin(), rows.end(), [&](const ReportRow& row) { return row.status == status; });
        if (count == 0)
            continue;
        text += separator + grouped(count) + ' ' + status;
        separator = ", ";
    }
    return text + ".";
}

Markup index_row(const ReportRow& row)
{
    Markup out;
    out.raw("<tr><th scope=\"row\">");
    if (row.page.empty())
        out.text(row.file);
    else
        out.raw("<a href=\"").text(row.page).raw("\">").text(row.file).raw("</a>");
    out.raw("</th><td>").add(status_badge(row.status)).raw("</td><td>").text(row.text);
    out.raw("</td><td class=\"n\">");
    if (row.size)
        out.text(grouped(*row.size));
    return out.raw("</td></tr>\n");
}

} // namespace

std::string report_page(const ReportData& data)
{
    Markup out = page_begin(data.name + " - " + name_of(data.verdict.status));
    out.add(head_of(data)).add(contents()).raw("<main>\n");
    out.add(tracks_of(data)).add(findings_of(data));
    out.add(picture_of_rate(data)).add(picture_of_times(data)).add(picture_of_distance(data));
    out.add(picture_of_spacing(data)).add(picture_of_seeks(data)).add(metadata_of(data));
    return out.raw("</main>\n</body></html>\n").str();
}

ReportRow row_of(const ReportData& data, const std::string& page)
{
    return {data.name, page, name_of(data.verdict.status), cause_of(data.verdict),
            data.verdict.size};
}

std::string index_page(const std::vector<ReportRow>& rows)
{
    Markup out = page_begin("Reports on FLV files");
    out.raw("<header><h1>Reports on FLV files</h1>\n<p>").text(index_summary(rows));
    out.raw("</p></header>\n<main><table class=\"index\">"
            "<caption>A row for each file, its page linked</caption>\n"
            "<thead><tr><th scope=\"col\">file</th><th scope=\"col\">verdict</th>"
            "<th scope=\"col\">cause</th><th scope=\"col\" "
            "class=\"n\">bytes</th></tr></thead>\n<tbody>\n");
    for (const ReportRow& row : rows)
        out.add(index_row(row));
    return out.raw("</tbody></table></main>\n</body></html>\n").str();
}

} // namespace zoflv_inspect
