// SPDX-License-Identifier: Apache-2.0
#include "inspect/report_pictures.h"
#include "inspect/report_plot.h"

#include <algorithm>

namespace zoflv_inspect {

namespace {

constexpr const char* HEADING = "Where seeks land";

/// How a test is drawn.
struct Style {
    const SeekTest* test;
    const char* name;
    const char* colour;
    Marker marker;
};

double ms_of(int64_t us)
{
    return static_cast<double>(us) / 1000;
}

std::string time_text(int64_t us)
{
    return clock_text(ms_of(us), 3);
}

std::string hits_text(const SeekTest& test)
{
    return std::to_string(test.hits()) + " of " + std::to_string(test.landings.size());
}

void add_rows(Table* table, const std::string& name, const SeekTest& test)
{
    constexpr size_t most = 100;
    for (size_t i = 0; i < std::min(test.landings.size(), most); ++i) {
        const SeekLanding& landing = test.landings[i];
        table->cell(name).cell(time_text(landing.target_us)).cell(landing_text(landing));
        table->cell(landing.ideal_us ? time_text(*landing.ideal_us) : "none");
        table->cell(landing.hit ? "hit" : "miss");
    }
}

Markup table_of(const std::vector<Style>& styles, const ReportData& data)
{
    Table hits("Seeks that land where they should", {"looking for", "of", "#hits"});
    for (const Style& style : styles)
        hits.cell(name_of(style.test->mode)).cell(style.name).cell(hits_text(*style.test));
    for (const Kind kind : {Kind::VIDEO, Kind::AUDIO}) {
        for (const SeekTest& test : data.verdict.device.of(kind).seeks) {
            if (&test != styles.front().test)
                hits.cell(name_of(test.mode))
                    .cell(kind == Kind::AUDIO ? "audio" : "video")
                    .cell(hits_text(test));
        }
    }
    Table table("Each seek to the frame before a time",
                {"of", "#asked for", "#landed", "#should be", "result"});
    for (const Style& style : styles)
        add_rows(&table, style.name, *style.test);
    return hits.end().add(table.end());
}

void draw(Plot* plot, const Style& style, const Axis& y)
{
    for (const SeekLanding& landing : style.test->landings) {
        const double x = ms_of(landing.target_us);
        const double at = landing.landed_us ? ms_of(*landing.landed_us) : y.from;
        if (landing.landed_us)
            plot->marker(style.marker, style.colour, x, at);
        if (!landing.hit)
            plot->marker(Marker::CROSS, "miss", x, at);
    }
}

/// All times asked for and landed on.
Axis axis_of(const std::vector<Style>& styles)
{
    double from = 0, to = 1;
    for (const Style& style : styles) {
        for (const SeekLanding& landing : style.test->landings) {
            for (const int64_t us :
                 {landing.target_us, landing.landed_us.value_or(landing.target_us)}) {
                from = std::min(from, ms_of(us));
                to = std::max(to, ms_of(us));
            }
        }
    }
    return with_room({from, to, Unit::TIME}, 0.04);
}

} // namespace

std::string landing_text(const SeekLanding& landing)
{
    return landing.landed_us ? time_text(*landing.landed_us) : "nowhere";
}

Markup picture_of_seeks(const ReportData& data)
{
    const TrackReport* const track = data.verdict.device.seek_track();
    const SeekTest* const test = track ? track->seeks_in(SeekMode::PREVIOUS) : nullptr;
    Markup out = section_begin("seeks", HEADING);
    if (!test || test->landings.empty()) {
        out.raw("<p>").text(track ? "Seeks were not tried."
                                  : "No track plays, and so none can seek.");
        return out.raw("</p>\n").add(section_end());
    }
    std::vector<Style> styles;
    const bool compared = data.seeks_without_index.has_value();
    styles.push_back({test, compared ? "with the index" : "without an index",
                      compared ? "video" : "audio", compared ? Marker::DOT : Marker::DIAMOND});
    if (compared)
        styles.push_back(
            {&*data.seeks_without_index, "with the index hidden", "audio", Marker::DIAMOND});
    std::string text =
        std::string("Seeks to the ") + (track->kind == Kind::VIDEO ? "keyframe" : "frame") +
        " at or before a time: on the line, a landing is where it was asked for. Right: ";
    for (const Style& style : styles)
        text += hits_text(*style.test) + ' ' + style.name + (&style == &styles.back() ? "." : ", ");
    const Axis axis = axis_of(styles);
    Plot plot("seeks-p", "Time where each seek landed against the time asked for", text, axis,
              axis);
    plot.move(axis.from, axis.from);
    plot.line(axis.to, axis.to);
    plot.stroke("ideal");
    Legend legend;
    for (const Style& style : styles) {
        draw(&plot, style, axis);
        legend.marker(style.marker, style.colour, style.name);
    }
    legend.marker(Marker::CROSS, "miss", "miss; at the bottom: landed nowhere");
    out.raw("<p>").text(text).raw("</p>\n").add(legend.end());
    out.raw("<figure>")
        .add(plot.svg())
        .raw("<figcaption>Across: the time asked for. Up: the time landed on."
             "</figcaption></figure>\n");
    out.raw("<details><summary>Where seeks land as a table, and other kinds of seeks</summary>\n");
    return out.add(table_of(styles, data)).raw("</details>\n").add(section_end());
}

} // namespace zoflv_inspect
