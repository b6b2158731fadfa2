// SPDX-License-Identifier: Apache-2.0
#include "inspect/report_pictures.h"

#include "inspect/report_plot.h"
#include "inspect/words.h"

#include <algorithm>

namespace zoflv_inspect {

namespace {

constexpr size_t MOST_ROWS = 48; // of a table: what can be listened to
constexpr const char* stream_names[] = {"video", "audio"};

std::string time_text(int64_t ms)
{
    return clock_text(static_cast<double>(ms), 3);
}

double real(int64_t number)
{
    return static_cast<double>(number);
}

/// Two cells: the smallest time and the largest.
void add_times(Table* table, const Extent& ms)
{
    table->cell(ms.any() ? time_text(ms.min) : "none").cell(ms.any() ? time_text(ms.max) : "none");
}

Markup nothing(std::string_view id, std::string_view heading, std::string_view why)
{
    Markup out = section_begin(id, heading);
    out.raw("<p>").text(why).raw("</p>\n").add(section_end());
    return out;
}

Markup picture(std::string_view id, std::string_view heading, std::string_view text,
               const Legend& legend, const Plot& plot, const Markup& table)
{
    Markup out = section_begin(id, heading);
    out.raw("<p>").text(text).raw("</p>\n").add(legend.end());
    out.raw("<figure>").add(plot.svg()).raw("</figure>\n");
    out.raw("<details><summary>").text(heading).raw(" as a table</summary>\n");
    out.add(table).raw("</details>\n");
    out.add(section_end());
    return out;
}

/// The stretch of time that frames of a stream cover.
Extent covered(const StreamScan& stream)
{
    if (stream.frames == 0)
        return {};
    return {stream.min_dts_ms, stream.min_dts_ms + std::max<int64_t>(stream.duration_ms(), 1)};
}

/// Bits per second in a bin. The first and the last one are only partly covered; of a very small part
/// there would be no rate to speak of.
double rate_in(const BinSeries<RateBin>& series, size_t bin, size_t stream, const Extent& covered)
{
    const int64_t from = std::max(series.start(bin), covered.min);
    const int64_t to = std::min(series.start(bin + 1), covered.max);
    const int64_t ms = std::clamp(to - from, series.width() / 4, series.width());
    return real(static_cast<int64_t>(series[bin].bytes[stream])) * 8000 / real(ms);
}

Markup table_of_rate(const ReportData& data, const Extent (&times)[2])
{
    const auto series = data.rate.coarse(MOST_ROWS);
    Table table("Bit rate over decoding time", {"#from", "#video", "#audio"});
    for (size_t i = 0; i < series.size(); ++i) {
        table.cell(time_text(series.start(i)));
        for (size_t stream = 0; stream < 2; ++stream)
            table.cell(times[stream].any() ? rate_text(rate_in(series, i, stream, times[stream]))
                                           : std::string("none"));
    }
    return table.end();
}

std::string rate_summary(const ReportData& data)
{
    std::string text;
    const StreamScan* const streams[] = {&data.scan.video, &data.scan.audio};
    for (size_t i = 0; i < 2; ++i) {
        const int64_t ms = streams[i]->duration_ms();
        if (ms > 0)
            text +=
                std::string(text.empty() ? "On average " : ", ") + stream_names[i] + " has " +
                rate_text(real(static_cast<int64_t>(streams[i]->frame_bytes)) * 8000 / real(ms));
    }
    return text.empty() ? "The frames take no time." : text + ".";
}

const char* stream_name(StreamKind kind)
{
    constexpr const char* names[] = {"file", "audio", "video"};
    return names[static_cast<size_t>(kind)];
}

Markup table_of_times(const ReportData& data)
{
    const auto series = data.place.coarse(MOST_ROWS);
    Table table("Decoding times by place in the file",
                {"#from byte", "#video from", "#video to", "#audio from", "#audio to"});
    for (size_t i = 0; i < series.size(); ++i) {
        table.cell(grouped(series.start(i)));
        for (const Extent& dts : series[i].dts)
            add_times(&table, dts);
    }
    Markup out = table.end();
    if (data.marks.empty())
        return out;
    Table marks("Jumps, resets and lost ranges", {"what", "of", "#at byte", "how much"});
    for (const ReportMark& mark : data.marks) {
        const bool lost = mark.kind == ReportMark::LOST;
        marks.cell(lost ? "lost range" : mark.kind == ReportMark::JUMP ? "jump" : "reset");
        marks.cell(stream_name(mark.stream)).cell(grouped(mark.offset));
        marks.cell(lost ? bytes_text(real(mark.size))
                        : "by " + time_text(mark.by_ms) + " to " + time_text(mark.dts_ms));
    }
    return out.add(marks.end());
}

/// The middle of a bin, kept inside the axis.
template <typename Bin>
double middle(const BinSeries<Bin>& series, size_t bin, const Axis& axis)
{
    return std::clamp((real(series.start(bin)) + real(series.start(bin + 1))) / 2, axis.from,
                      axis.to);
}

/// From each bin's smallest value to its largest; a bin without values is gone across.
template <typename Get>
void draw_extents(Plot* plot, const BinSeries<PlaceBin>& series, const Axis& x, const Get& get)
{
    bool begun = false;
    for (size_t i = 0; i < series.size(); ++i) {
        const Extent& extent = get(series[i]);
        if (!extent.any())
            continue;
        const double at = middle(series, i, x);
        if (begun)
            plot->line(at, real(extent.min));
        else
            plot->move(at, real(extent.min));
        plot->line(at + (extent.max == extent.min ? x.span() / 1000 : 0), real(extent.max));
        begun = true;
    }
}

void draw_marks(Plot* plot, const std::vector<ReportMark>& marks)
{
    for (const ReportMark& mark : marks) {
        const double at = real(mark.offset);
        if (mark.kind == ReportMark::LOST)
            plot->band("lost", at, real(mark.offset + mark.size));
        else
            plot->rule(mark.kind == ReportMark::JUMP ? "jump" : "reset", at);
    }
}

size_t count(const std::vector<ReportMark>& marks, ReportMark::Kind kind)
{
    return static_cast<size_t>(std::count_if(
        marks.begin(), marks.end(), [&](const ReportMark& mark) { return mark.kind == kind; }));
}

std::string marks_text(const ReportData& data)
{
    if (data.marks.empty())
        return "Times go on evenly, and no bytes are lost.";
    constexpr struct {
        ReportMark::Kind kind;
        const char* meaning;
    } kinds[] = {{ReportMark::JUMP, "forward by more than a second: "},
                 {ReportMark::RESET, "back by more than a second: "},
                 {ReportMark::LOST, "ranges of bytes that belong to no tag: "}};
    std::string text = "Marked are";
    for (const auto& row : kinds) {
        if (const size_t marks = count(data.marks, row.kind))
            text += std::string(text.back() == 'e' ? " " : ", ") +
                    (row.kind == ReportMark::LOST ? "" : "times that go ") + row.meaning +
                    std::to_string(marks);
    }
    text += ".";
    if (data.more_marks > 0)
        text += " " + grouped(static_cast<int64_t>(data.more_marks)) + " more are not shown.";
    return text;
}

Axis bytes_axis(const ReportData& data)
{
    return {0, std::max(real(data.verdict.size), 1.0), Unit::BYTES};
}

} // namespace

Markup section_begin(std::string_view id, std::string_view heading)
{
    Markup out;
    out.raw("<section id=\"").text(id).raw("\" aria-labelledby=\"").text(id).raw("-h\"><h2 id=\"");
    return out.text(id).raw("-h\">").text(heading).raw("</h2>\n");
}

Markup section_end()
{
    Markup out;
    return out.raw("</section>\n");
}

Markup picture_of_rate(const ReportData& data)
{
    constexpr const char* heading = "Bit rate over time";
    const BinSeries<RateBin>& series = data.rate;
    const Extent times[2] = {covered(data.scan.video), covered(data.scan.audio)};
    if (series.size() == 0)
        return nothing("rate", heading, "There is no frame, and so no bit rate.");
    Extent all = times[0];
    all.merge(times[1]);
    double most = 1000;
    for (size_t i = 0; i < series.size(); ++i) {
        for (size_t stream = 0; stream < 2; ++stream) {
            if (times[stream].any() && (i == 0 || i + 1 < series.size()))
                most = std::max(most, rate_in(series, i, stream, times[stream]));
        }
    }
    const Axis x{real(all.min), real(all.max), Unit::TIME};
    const std::string summary = rate_summary(data);
    Plot plot("rate-p", "Bit rate of each stream over decoding time", summary, x,
              {0, most * 1.05, Unit::BIT_RATE});
    Legend legend;
    for (size_t stream = 0; stream < 2; ++stream) {
        if (!times[stream].any())
            continue;
        bool begun = false;
        for (size_t i = 0; i < series.size(); ++i) {
            const int64_t from = std::max(series.start(i), times[stream].min);
            const int64_t to = std::min(series.start(i + 1), times[stream].max);
            if (from >= to || (begun && to - from < series.width() / 2)) // too little for a rate
                continue;
            const double rate = rate_in(series, i, stream, times[stream]);
            if (begun)
                plot.line(real(from), rate);
            else
                plot.move(real(from), rate);
            plot.line(real(to), rate);
            begun = true;
        }
        plot.stroke(stream == 0 ? "video" : "audio");
        legend.line(stream == 0 ? "video" : "audio", stream_names[stream]);
    }
    return picture("rate", heading,
                   summary + " Each step is the average over " + time_text(series.width()) + ".",
                   legend, plot, table_of_rate(data, times));
}

Markup picture_of_times(const ReportData& data)
{
    constexpr const char* heading = "Decoding time against file position";
    const BinSeries<PlaceBin>& series = data.place;
    if (series.size() == 0)
        return nothing("times", heading, "There is no frame, and so no time.");
    Extent all;
    for (size_t i = 0; i < series.size(); ++i) {
        for (const Extent& dts : series[i].dts)
            all.merge(dts);
    }
    const Axis x = bytes_axis(data);
    const std::string text = marks_text(data);
    Plot plot("times-p", "Decoding time of the tags by their place in the file", text, x,
              with_room({real(all.min), real(all.max), Unit::TIME}, 0.03));
    Legend legend;
    constexpr const char* styles[] = {"video wide", "audio"};
    const StreamScan* const streams[] = {&data.scan.video, &data.scan.audio};
    for (size_t stream = 0; stream < 2; ++stream) {
        if (streams[stream]->frames == 0)
            continue;
        draw_extents(&plot, series, x, [&](const PlaceBin& bin) { return bin.dts[stream]; });
        plot.stroke(styles[stream]);
        legend.line(styles[stream], stream_names[stream]);
    }
    draw_marks(&plot, data.marks);
    if (count(data.marks, ReportMark::JUMP) > 0)
        legend.line("jump", "jump forward");
    if (count(data.marks, ReportMark::RESET) > 0)
        legend.line("reset", "reset back");
    if (count(data.marks, ReportMark::LOST) > 0)
        legend.line("lost-line", "lost bytes");
    return picture("times", heading, text, legend, plot, table_of_times(data));
}

Markup picture_of_distance(const ReportData& data)
{
    constexpr const char* heading = "Distance of audio and video";
    const BinSeries<PlaceBin>& series = data.place;
    Extent all;
    for (size_t i = 0; i < series.size(); ++i)
        all.merge(series[i].apart);
    if (!all.any())
        return nothing("distance", heading, "There are not both streams, and so no distance.");
    const Axis x = bytes_axis(data);
    const std::string text =
        "The time of each audio tag less that of the video tag before it in the file: from " +
        time_text(all.min) + " to " + time_text(all.max) + ".";
    all.add(0);
    Plot plot("distance-p", "Audio time less video time by place in the file", text, x,
              with_room({real(all.min), real(all.max), Unit::DISTANCE}, 0.05));
    draw_extents(&plot, series, x, [](const PlaceBin& bin) { return bin.apart; });
    plot.stroke("audio");
    const auto coarse = series.coarse(MOST_ROWS);
    Table table("Audio time less video time by place in the file",
                {"#from byte", "#smallest", "#largest"});
    for (size_t i = 0; i < coarse.size(); ++i) {
        table.cell(grouped(coarse.start(i)));
        add_times(&table, coarse[i].apart);
    }
    return picture("distance", heading, text, Legend().line("audio", "audio less video"), plot,
                   table.end());
}

Markup picture_of_spacing(const ReportData& data)
{
    constexpr const char* heading = "Keyframe spacing";
    const BinSeries<SpacingBin>& series = data.spacing;
    Extent all;
    for (size_t i = 0; i < series.size(); ++i)
        all.merge(series[i].ms);
    if (!all.any())
        return nothing("spacing", heading,
                       data.scan.video.keyframes.count == 0
                           ? "There is no keyframe."
                           : "There is a single keyframe: seeks can land only there.");
    const KeyframeScan& keys = data.scan.video.keyframes;
    const std::string apart = all.min == all.max
                                  ? time_text(all.min) + " apart"
                                  : time_text(all.min) + " to " + time_text(all.max) + " apart, " +
                                        clock_text(keys.average_ms(), 3) + " on average";
    const std::string text =
        counted(keys.count, "keyframe") + ", " + apart + ". A seek lands on one.";
    const Axis x{real(data.scan.video.min_dts_ms),
                 std::max(real(data.scan.video.max_dts_ms), real(data.scan.video.min_dts_ms) + 1),
                 Unit::TIME};
    Plot plot("spacing-p", "Distance of each keyframe from the one before it, over decoding time",
              text, x, {0, std::max(real(all.max), 1.0) * 1.08, Unit::DISTANCE});
    for (size_t i = 0; i < series.size(); ++i) {
        const Extent& ms = series[i].ms;
        if (!ms.any())
            continue;
        const double at = middle(series, i, x);
        plot.move(at, real(ms.min));
        plot.line(at, real(ms.max));
        plot.marker(Marker::DOT, "video", at, real(ms.max));
    }
    plot.stroke("video");
    const auto coarse = series.coarse(MOST_ROWS);
    Table table("Distance of keyframes over decoding time", {"#from", "#shortest", "#longest"});
    for (size_t i = 0; i < coarse.size(); ++i) {
        table.cell(time_text(coarse.start(i)));
        add_times(&table, coarse[i].ms);
    }
    return picture(
        "spacing", heading, text,
        Legend().marker(Marker::DOT, "video", "longest distance of keyframes around a time"), plot,
        table.end());
}

} // namespace zoflv_inspect
