// SPDX-License-Identifier: Apache-2.0
#include "tools/seek_test.h"

#include "tools/file.h"
#include "tools/progress.h"

#include <cinttypes>
#include <cstdlib>

namespace {

namespace zi = zoflv_inspect;

/// What is wrong with a file's seeks, counted.
struct Faults {
    size_t seeks = 0;
    size_t misses = 0; ///< in the mode that makes the verdict
    size_t far = 0;
    size_t costly = 0;
};

bool is_far(const zi::SeekLanding& landing, int max_miss_ms)
{
    if (max_miss_ms < 0 || !landing.ideal_us)
        return false;
    return !landing.landed_us ||
           std::abs(*landing.landed_us - *landing.ideal_us) > int64_t{max_miss_ms} * 1000;
}

bool is_costly(const zi::SeekLanding& landing, int max_reads)
{
    return max_reads >= 0 &&
           landing.seek.reads + landing.frame.reads > static_cast<uint64_t>(max_reads);
}

Json json_of(const std::string& file, int track, zi::SeekMode mode, const zi::SeekLanding& landing)
{
    const auto time = [](const std::optional<int64_t>& us) { return us ? Json(*us) : Json(); };
    return {{"schema_version", schema_version},
            {"file", file},
            {"track", track},
            {"mode", zi::name_of(mode)},
            {"target_us", landing.target_us},
            {"landed_us", time(landing.landed_us)},
            {"ideal_us", time(landing.ideal_us)},
            {"hit", landing.hit},
            {"status", zoflv_host::status_text(landing.status)},
            {"reads", landing.seek.reads},
            {"bytes", landing.seek.bytes},
            {"frame_reads", landing.frame.reads},
            {"frame_bytes", landing.frame.bytes}};
}

void print(int track, zi::SeekMode mode, const zi::SeekLanding& landing)
{
    const auto time = [](const std::optional<int64_t>& us) {
        return us ? seconds(*us * 10) : std::string("-");
    };
    put(textf("%5d  %-12s %12s %12s %12s %6" PRIu64 " %9" PRIu64 " %7" PRIu64 " %9" PRIu64 "  %s\n",
              track, zi::name_of(mode), seconds(landing.target_us * 10).c_str(),
              time(landing.landed_us).c_str(), time(landing.ideal_us).c_str(), landing.seek.reads,
              landing.seek.bytes, landing.frame.reads, landing.frame.bytes,
              landing.hit ? "hit" : "miss"));
}

/// Throws Failure when nothing plays.
zi::DeviceReport play(const std::string& file, const SeekTestOptions& options, Session& session)
{
    const std::shared_ptr<zoflv_host::DataSource> source = open_source(file);
    source->hold_size(); // as check does
    Progress progress(file, zi::HostSource(*source).size(), !session.quiet());
    zi::HostSource bytes(*source);
    zi::TagWalker walker(bytes);
    zi::DeviceRun run(*session.plugin(), source, options.device);
    while (const zi::Item* item = walker.next()) {
        run.see(*item, walker);
        if (item->kind == zi::ItemKind::TAG)
            progress.at(item->tag.offset);
    }
    const zi::DeviceReport& report = run.finish();
    if (!report.opened)
        throw not_flv(*source, report.open.text);
    if (!report.seek_track())
        throw Failure(EXIT_BAD_FILE, "no track plays (zoflv check tells why)");
    return report;
}

void show_track(const std::string& file, const zi::TrackReport& track, bool judged,
                const SeekTestOptions& options, Faults* faults)
{
    for (const zi::SeekTest& test : track.seeks) {
        if (options.mode != "all" && options.mode != zi::name_of(test.mode))
            continue;
        for (const zi::SeekLanding& landing : test.landings) {
            if (options.json)
                put_line(json_of(file, track.index, test.mode, landing));
            else
                print(track.index, test.mode, landing);
            ++faults->seeks;
            faults->misses += judged && test.mode == zi::SeekMode::PREVIOUS && !landing.hit;
            faults->far += is_far(landing, options.max_miss_ms);
            faults->costly += is_costly(landing, options.max_reads);
        }
    }
}

std::string text_of(const Faults& faults, const SeekTestOptions& options)
{
    std::string text;
    const auto add = [&](size_t count, const std::string& what) {
        if (count > 0)
            text +=
                (text.empty() ? "" : ", ") + textf("%zu of %zu seeks ", count, faults.seeks) + what;
    };
    add(faults.misses, "miss");
    add(faults.far, textf("land more than %d ms from where they should", options.max_miss_ms));
    add(faults.costly, textf("need more than %d file calls", options.max_reads));
    return text;
}

} // namespace

void test_seeks(const std::string& file, const SeekTestOptions& options, Session& session,
                int* worst)
{
    const zi::DeviceReport report = play(file, options, session);
    const zi::TrackReport* const judged = report.seek_track();
    Faults faults;
    if (!options.json)
        put(textf("%5s  %-12s %12s %12s %12s %6s %9s %7s %9s\n", "track", "mode", "target (s)",
                  "landed (s)", "ideal (s)", "reads", "bytes", "+reads", "+bytes"));
    for (const zi::TrackReport* track : {&report.video, &report.audio}) {
        if (options.track < 0 || options.track == track->index)
            show_track(file, *track, track == judged, options, &faults);
    }
    const std::string text = text_of(faults, options);
    if (!text.empty())
        attempt(worst, file, [&] { throw Failure(EXIT_BAD_FILE, text); });
}
