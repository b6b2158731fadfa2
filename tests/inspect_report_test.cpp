// SPDX-License-Identifier: Apache-2.0
// Reports: nothing from a file becomes markup, and their data keep within bounds.
#include "inspect/report_html.h"
#include "tests/support/flv_builder.h"

#include <gtest/gtest.h>

#include <zoflv_host/log.h>

using namespace zoflv_inspect;

namespace {

std::string error; // of the loader
const auto plugin = zoflv_host::ExtractorLibrary::load(ZOFLV_PLUGIN, &error);

ReportData data_of(const Bytes& file, const std::string& name)
{
    const zoflv_host::ScopedLogSink silent([](int, const std::string&, const std::string&) {});
    return make_report(*plugin, std::make_shared<zoflv_host::MemoryDataSource>(file), name);
}

size_t count(const std::string& text, const std::string& part)
{
    size_t found = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++found;
    return found;
}

} // namespace

TEST(InspectReport, NothingOfAFileIsMarkup)
{
    const std::string evil = "<script>x('\"&\xE2\x80\xAE\xFF\n";
    const std::string shown = "&lt;script&gt;x(&#39;&quot;&amp;\\xe2\\x80\\xae\\xff\\x0a";
    const Bytes file = FlvBuilder()
                           .header()
                           .tag(18, 0, on_meta_data({amf_prop(evil, amf_str(evil))}))
                           .tag(8, 0, mp3_tag())
                           .bytes();
    ReportData data = data_of(file, evil);
    data.device.name = evil;
    data.verdict.device.audio.mime = evil;
    data.verdict.findings.front().detail = evil;
    const std::string page = report_page(data);
    EXPECT_EQ(count(page, "<script"), 0u);
    EXPECT_EQ(count(page, shown), 7u) << "title, heading, profile, track, finding, property, value";
    EXPECT_EQ(count(page, "default-src 'none'; style-src 'unsafe-inline'"), 1u);
    EXPECT_EQ(count(index_page({{evil, evil, "sound", evil, 0}}), "<script"), 0u);
}

TEST(InspectReport, BinsKeepEverythingInFewOfThem)
{
    BinSeries<RateBin> series(250);
    const int64_t positions[] = {0, 249, 250, 90000, INT32_MAX, INT32_MIN, -1, 7200000};
    for (const int64_t position : positions) {
        series.at(position).bytes[0] += 1;
        ASSERT_LE(series.size(), BinSeries<RateBin>::MOST) << position;
    }
    for (const size_t most : {size_t{256}, size_t{48}, size_t{2}}) {
        const auto coarse = series.coarse(most);
        ASSERT_LE(coarse.size(), most);
        for (size_t i = 0; i < coarse.size(); ++i) {
            uint64_t inside = 0;
            for (const int64_t position : positions)
                inside += position >= coarse.start(i) && position < coarse.start(i + 1);
            EXPECT_EQ(coarse[i].bytes[0], inside) << i << " of " << most;
        }
    }
}

TEST(InspectReport, MarksAndTheHiddenIndex)
{
    FlvBuilder file = FlvBuilder().header();
    for (const uint32_t ms : {0U, 500U, 5000U, 100U})
        file.tag(8, ms, mp3_tag(fill(40)));
    const ReportData data = data_of(file.bytes(), "a.flv");
    ASSERT_EQ(data.marks.size(), 2u);
    EXPECT_EQ(
        values(data.marks[0].kind, data.marks[0].by_ms, data.marks[1].kind, data.marks[1].by_ms),
        values(ReportMark::JUMP, 4500, ReportMark::RESET, -4900));
    EXPECT_FALSE(data.seeks_without_index);
}
