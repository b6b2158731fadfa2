// SPDX-License-Identifier: Apache-2.0
#include "inspect/verdict.h"
#include "tools/commands.h"
#include "tools/file.h"
#include "tools/progress.h"

#include <cinttypes>
#include <memory>

namespace {

namespace zi = zoflv_inspect;

struct CheckOptions {
    std::vector<std::string> files;
    zi::DeviceOptions device{};
    bool json = false;
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
            {"curable", rule.curable},
            {"elsewhere", rule.elsewhere ? Json(rule.elsewhere) : Json()}};
}

Json json_of(const std::string& file, const zi::Verdict& verdict)
{
    Json tracks = Json::array();
    for (const zi::TrackReport* track : tracks_of(verdict.device))
        tracks.push_back(json_of(*track));
    Json findings = Json::array();
    for (const zi::Finding& finding : verdict.findings)
        findings.push_back(json_of(finding));
    return {{"schema_version", 1},
            {"file", file},
            {"verdict",
             {{"status", zi::name_of(verdict.status)},
              {"cause", verdict.cause ? Json(verdict.findings[*verdict.cause].code()) : Json()},
              {"text", verdict.sentence()},
              {"device", verdict.device.name},
              {"tracks", tracks}}},
            {"findings", findings}};
}

/// The record of a file that could not be looked at.
Json json_of_failure(const std::string& file, const zi::DeviceProfile& device, const char* reason)
{
    return {{"schema_version", 1},
            {"file", file},
            {"verdict",
             {{"status", "failed"},
              {"cause", nullptr},
              {"text", reason},
              {"device", device.name},
              {"tracks", Json::array()}}},
            {"findings", Json::array()}};
}

std::string text_of(const zi::TrackReport& track)
{
    std::string text = track.index < 0 ? "  no track" : textf("  track %d ", track.index);
    text += textf("  %s  %" PRIu64 " of %" PRIu64 " frames", name_of(track.kind),
                  track.frames.delivered, track.frames.expected);
    if (track.frames.foreign > 0)
        text += textf(" and %" PRIu64 " that are none", track.frames.foreign);
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
        text += std::string("           May play elsewhere, not here, because ") + rule.elsewhere +
                ".\n";
    return text + "           " + rule.remedy + '\n';
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
        for (const std::string& file : m_options.files)
            attempt(&m_worst, file, [&] { check(file); });
        if (m_options.files.size() > 1 && !m_session.quiet())
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
        } catch (const Failure& failure) {
            ++m_failed;
            if (m_options.json)
                put_line(json_of_failure(file, m_session.device(), failure.what()));
            throw;
        }
    }

    void judge(const std::string& file)
    {
        std::shared_ptr<zoflv_host::DataSource> source = open_source(file);
        Progress progress(file, zi::HostSource(*source).size(), !m_session.quiet());
        const zi::Verdict verdict = zi::check(*m_plugin, std::move(source), m_options.device,
                                              [&](int64_t done, int64_t) { progress.at(done); });
        progress.clear();
        ++m_counts[static_cast<size_t>(verdict.status)];
        if (verdict.status != zi::Status::SOUND)
            m_worst = std::max<int>(m_worst, EXIT_BAD_FILE);
        if (m_options.json)
            put_line(json_of(file, verdict));
        else
            print(file, verdict);
    }

    void summarize() const
    {
        std::string text =
            textf("%zu sound, %zu partial, %zu refused", m_counts[0], m_counts[1], m_counts[2]);
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
};

} // namespace

Command add_check(CLI::App& app)
{
    constexpr Help help = {
        "What a device does with files, and why",
        "  zoflv check recording.flv\n"
        "  zoflv check --json *.flv | jq -r 'select(.verdict.status != \"sound\") | .file'\n"
        "  zoflv check --device kitchen.json recording.flv",
        "A file is sound when the device plays every frame of every stream and seeks land where "
        "they\n"
        "should; it is refused when nothing plays, and else partial. Each finding has a code, "
        "explained\n"
        "in docs/findings.md; an error is the reason of what was seen.",
        "0 all sound; 1 a file is not; 2 wrong usage, or a file, the plugin or the output\n"
        "cannot be opened or written",
    };
    const auto options = std::make_shared<CheckOptions>();
    CLI::App* command = add_command(app, "check", help);
    add_files(command, &options->files);
    add_number(command, "--seeks", &options->device.seeks,
               "Seeks to try: 32 if not given, 0 for none");
    add_json(command, &options->json);
    return {command, [options](Session& session) {
                options->device.profile = session.device();
                return Checker(*options, session).run();
            }};
}
