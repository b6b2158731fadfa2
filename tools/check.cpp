// SPDX-License-Identifier: Apache-2.0
#include "inspect/head.h"
#include "inspect/verdict.h"
#include "inspect/words.h"
#include "tools/check_csv.h"
#include "tools/commands.h"
#include "tools/file.h"
#include "tools/file_names.h"
#include "tools/progress.h"
#include "tools/timed_source.h"

#include <algorithm>
#include <cinttypes>
#include <memory>
#include <new>

namespace {

namespace zi = zoflv_inspect;

struct CheckOptions {
    std::vector<std::string> files;
    zi::DeviceOptions device{};
    std::string list;  ///< of files; "-": standard input; empty: none
    int timeout_s = 0; ///< for each file; 0: none
    bool json = false;
    bool csv = false;
};

/// The time limit of a file is over.
class Timeout : public Failure {
public:
    explicit Timeout(int seconds)
        : Failure(EXIT_BAD_FILE, textf("not done within the time limit of %d s", seconds))
    {}
};

const char* name_of(zi::Kind kind)
{
    return kind == zi::Kind::AUDIO ? "audio" : "video";
}

/// The tracks that are there or should be, in the order of the plugin.
std::vector<const zi::TrackReport*> tracks_of(const zi::DeviceReport& report)
{
    std::vector<const zi::TrackReport*> tracks;
    for (const zi::TrackReport* track : {&report.video, &report.audio}) {
        if (track->index >= 0 || track->tags > 0)
            tracks.push_back(track);
    }
    const auto order = [](const zi::TrackReport* track) {
        return static_cast<unsigned>(track->index);
    };
    if (tracks.size() == 2 && order(tracks[1]) < order(tracks[0])) // -1, no track, comes last
        std::swap(tracks[0], tracks[1]);
    return tracks;
}

Json json_of(const zi::TrackReport& track)
{
    Json seeks = Json::array();
    for (const zi::SeekTest& test : track.seeks)
        seeks.push_back({{"mode", zi::name_of(test.mode)},
                         {"targets", test.landings.size()},
                         {"hits", test.hits()}});
    const bool published = track.index >= 0;
    const zi::FrameCount& frames = track.frames;
    return {{"track", published ? Json(track.index) : Json()},
            {"type", name_of(track.kind)},
            {"mime", published ? Json(track.mime) : Json()},
            {"error_type", published ? Json(track.error_type) : Json()},
            {"started", track.started()},
            {"usable", track.usable()},
            {"tags", track.tags},
            {"duration_us", track.extent_us},
            {"lost_us", track.lost_us()},
            {"frames",
             {{"expected", frames.expected},
              {"delivered", frames.delivered},
              {"missing", frames.missing},
              {"unread", frames.unread},
              {"foreign", frames.foreign}}},
            {"end_reason", track.end.text.empty() ? Json() : Json(track.end.text)},
            {"seeks", seeks}};
}

Json json_of(const zi::Finding& finding)
{
    const zi::FindingRule& rule = finding.info();
    return {{"code", rule.code},
            {"level", zi::name_of(finding.level)},
            {"offset", finding.offset == zi::NO_OFFSET ? Json() : Json(finding.offset)},
            {"time_us", finding.time_us == zi::NO_TIME ? Json() : Json(finding.time_us)},
            {"count", finding.count},
            {"text", finding.text()},
            {"remedy", rule.remedy},
            {"curable", finding.curable},
            {"elsewhere", rule.elsewhere ? Json(rule.elsewhere) : Json()}};
}

/// What wrote the file; null when it does not say so.
Json made_by_of(zoflv_host::DataSource& source)
{
    constexpr size_t enough = 200; // bytes: a name and a version
    zi::HostSource bytes(source);
    const zi::Head head = zi::read_head(bytes);
    const auto name = zi::made_by(head);
    return name ? Json(name->substr(0, enough)) : Json();
}

Json json_of(const std::string& file, const zi::Verdict& verdict, const Json& made_by)
{
    Json tracks = Json::array();
    int64_t duration_us = 0;
    int64_t lost_us = 0;
    for (const zi::TrackReport* track : tracks_of(verdict.device)) {
        tracks.push_back(json_of(*track));
        duration_us = std::max(duration_us, track->extent_us);
        lost_us = std::max(lost_us, track->lost_us());
    }
    Json findings = Json::array();
    for (const zi::Finding& finding : verdict.findings)
        findings.push_back(json_of(finding));
    const std::optional<bool> curable = verdict.curable();
    return {{"schema_version", 1},
            {"file", file},
            {"size", verdict.size},
            {"duration_us", duration_us},
            {"made_by", made_by},
            {"verdict",
             {{"status", zi::name_of(verdict.status)},
              {"cause", verdict.cause ? Json(verdict.findings[*verdict.cause].code()) : Json()},
              {"text", verdict.sentence()},
              {"curable", curable ? Json(*curable) : Json()},
              {"lost_us", lost_us},
              {"device", verdict.device.name},
              {"tracks", tracks}}},
            {"findings", findings}};
}

/// The record of a file that could not be looked at, or not to its end.
/// @param status  "failed" or "timeout"
Json json_of_failure(const std::string& file, const zi::DeviceProfile& device, const char* status,
                     const char* reason)
{
    return {{"schema_version", 1},
            {"file", file},
            {"size", nullptr},
            {"duration_us", nullptr},
            {"made_by", nullptr},
            {"verdict",
             {{"status", status},
              {"cause", nullptr},
              {"text", reason},
              {"curable", nullptr},
              {"lost_us", nullptr},
              {"device", device.name},
              {"tracks", Json::array()}}},
            {"findings", Json::array()}};
}

std::string text_of(const zi::TrackReport& track)
{
    std::string text = track.index < 0 ? "  no track" : textf("  track %d ", track.index);
    text += std::string("  ") + name_of(track.kind) + "  " +
            zi::grouped(static_cast<int64_t>(track.frames.delivered)) + " of " +
            zi::counted(track.frames.expected, "frame");
    if (track.frames.foreign > 0)
        text += ", and " + zi::grouped(static_cast<int64_t>(track.frames.foreign)) +
                " that are none of its frames";
    if (const zi::SeekTest* seeks = track.seeks_in(zi::SeekMode::PREVIOUS))
        text += textf(", %zu of %zu seeks", seeks->hits(), seeks->landings.size());
    if (track.index >= 0 && !track.device_plays)
        text += ", not played: " + track.mime;
    if (track.started() && !track.frames.complete() && !track.end.text.empty())
        text += "; reading ended: " + track.end.text;
    return printable(text) + '\n';
}

std::string text_of(const zi::Finding& finding)
{
    const zi::FindingRule& rule = finding.info();
    std::string place;
    if (finding.offset != zi::NO_OFFSET)
        place = textf(" (byte %" PRId64, finding.offset);
    if (finding.time_us != zi::NO_TIME)
        place += (place.empty() ? " (" : ", ") + seconds(finding.time_us * 10) + " s";
    if (!place.empty())
        place += ')';
    std::string text = textf("  %-8s %s: ", zi::name_of(finding.level), rule.code) +
                       printable(finding.text()) + place + '\n';
    if (finding.level == zi::Level::NOTICE)
        return text;
    if (finding.level == zi::Level::ERROR && rule.elsewhere)
        text +=
            std::string("           Plays elsewhere, not here, because ") + rule.elsewhere + ".\n";
    return text + "           " + rule.remedy + '\n';
}

/// What to say of a file of which a read failed.
std::string unread(const zi::Verdict& verdict)
{
    for (const zi::Finding& finding : verdict.findings) {
        if (finding.rule == zi::Rule::FILE_READ_FAILED)
            return textf("cannot be read from byte %" PRId64 " on", finding.offset);
    }
    return "a read failed while it was played, or it became shorter";
}

void print(const std::string& file, const zi::Verdict& verdict)
{
    std::string text = printable(file + ": " + verdict.sentence()) + '\n';
    for (const zi::TrackReport* track : tracks_of(verdict.device))
        text += text_of(*track);
    for (const zi::Finding& finding : verdict.findings)
        text += text_of(finding);
    put(text);
}

/// Judges the files, one after the other.
class Checker {
public:
    Checker(const CheckOptions& options, Session& session)
        : m_options(options), m_session(session), m_plugin(session.plugin())
    {}

    int run()
    {
        FileNames names(m_options.files, m_options.list);
        if (m_options.csv)
            put(check_csv_header());
        attempt(&m_worst, m_options.list, [&] {
            for (std::string file; names.next(&file);)
                attempt(&m_worst, file, [&] { check(file); });
        });
        if (names.several() && !m_session.quiet())
            summarize();
        return m_worst;
    }

private:
    void check(const std::string& file)
    {
        try {
            judge(file);
        } catch (const OutputFailure&) {
            throw;
        } catch (const Timeout& timeout) {
            ++m_timeouts;
            give(json_of_failure(file, m_session.device(), "timeout", timeout.what()));
            throw;
        } catch (const Failure& failure) {
            ++m_failed;
            give(json_of_failure(file, m_session.device(), "failed", failure.what()));
            throw;
        } catch (const std::bad_alloc&) {
            ++m_failed;
            give(json_of_failure(file, m_session.device(), "failed", "out of memory"));
            throw;
        }
    }

    /// Writes a record at once: somebody may wait for it.
    void give(const Json& record)
    {
        if (m_options.json)
            put_line(record);
        else if (m_options.csv)
            put(check_csv_row(record));
        flush_output();
    }

    void judge(const std::string& file)
    {
        const auto timed = m_options.timeout_s > 0
                               ? std::make_shared<TimedSource>(
                                     open_source(file), std::chrono::seconds(m_options.timeout_s))
                               : nullptr;
        std::shared_ptr<zoflv_host::DataSource> source = timed;
        if (!source)
            source = open_source(file);
        Progress progress(file, zi::HostSource(*source).size(), !m_session.quiet());
        const zi::Verdict verdict = zi::check(*m_plugin, source, m_options.device,
                                              [&](int64_t done, int64_t) { progress.at(done); });
        progress.clear();
        const bool record = m_options.json || m_options.csv;
        const Json made_by = record ? made_by_of(*source) : Json();
        if (timed && timed->expired())
            throw Timeout(m_options.timeout_s);
        if (verdict.read_failed)
            throw Failure(EXIT_USAGE, unread(verdict));
        ++m_counts[static_cast<size_t>(verdict.status)];
        if (verdict.status != zi::Status::SOUND)
            m_worst = std::max<int>(m_worst, EXIT_BAD_FILE);
        if (record)
            give(json_of(file, verdict, made_by));
        else
            print(file, verdict);
    }

    void summarize() const
    {
        std::string text =
            textf("%zu sound, %zu partial, %zu refused", m_counts[0], m_counts[1], m_counts[2]);
        if (m_timeouts > 0)
            text += textf(", %zu not done in time", m_timeouts);
        if (m_failed > 0)
            text += textf(", %zu could not be read", m_failed);
        flush_output(); // the summary comes after the results, also on one terminal
        std::fprintf(stderr, "%s\n", text.c_str());
    }

    const CheckOptions& m_options;
    Session& m_session;
    const PluginPtr m_plugin;
    int m_worst = EXIT_FINE;
    size_t m_counts[3] = {}; ///< by Status
    size_t m_failed = 0;
    size_t m_timeouts = 0;
};

} // namespace

Command add_check(CLI::App& app)
{
    constexpr Help help = {
        "What a device does with files, and why",
        "  zoflv check recording.flv\n"
        "  zoflv check --json *.flv | jq -r 'select(.verdict.status != \"sound\") | .file'\n"
        "  zoflv check --device kitchen.json recording.flv\n"
        "  find /archive -name '*.flv' -print0 | zoflv check --json --timeout 60 --files0-from -",
        "A file is sound when the device plays every frame of every stream and seeks land where "
        "they\n"
        "should; it is refused when nothing plays, and else partial. Each finding has a code, "
        "explained\n"
        "in docs/findings.md; an error is the reason of what was seen.",
        "0 all sound; 1 a file is not, or was not done in time; 2 wrong usage, or a file cannot\n"
        "be read, the plugin not loaded or the output not written",
    };
    const auto options = std::make_shared<CheckOptions>();
    CLI::App* command = add_command(app, "check", help);
    add_files(command, &options->files)->required(false);
    command
        ->add_option("--files0-from", options->list,
                     "Files named in this one too, each name with a NUL byte after it;\n"
                     "- for standard input")
        ->type_name("FILE");
    add_number(command, "--seeks", &options->device.seeks,
               "Seeks to try: 32 if not given, 0 for none");
    add_number(command, "--timeout", &options->timeout_s,
               "Seconds for each file, at most; 0 for no limit, as if not given")
        ->type_name("S");
    CLI::Option* const json = add_json(command, &options->json);
    command->add_flag("--csv", options->csv, "One row for each file, with a header")
        ->excludes(json);
    return {command, [options](Session& session) {
                if (options->files.empty() && options->list.empty())
                    throw SetupFailure("usage",
                                       "no file named (zoflv check --help shows the usage)");
                options->device.profile = session.device();
                return Checker(*options, session).run();
            }};
}
