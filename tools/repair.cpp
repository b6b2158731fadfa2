// SPDX-License-Identifier: Apache-2.0
#include "inspect/repair.h"
#include "inspect/repair_proof.h"
#include "tools/commands.h"
#include "tools/file.h"
#include "tools/output_file.h"
#include "tools/progress.h"

#include <cinttypes>
#include <cmath>
#include <filesystem>
#include <memory>
#include <optional>

namespace {

namespace zi = zoflv_inspect;

constexpr int EXIT_NOTHING_TO_REPAIR = 3;

struct RepairCommand {
    std::string file, output;
    zi::TimeRules times{};
    bool dry_run = false;
    bool always = false;
    bool force = false;
    bool json = false;
};

enum class Outcome { WRITTEN, WOULD_WRITE, NOT_MENDED, NOTHING_TO_REPAIR };
constexpr const char* OUTCOME_NAMES[] = {"repaired", "would_repair", "not_mended",
                                         "nothing_to_repair"};

struct Result {
    Outcome outcome = Outcome::NOT_MENDED;
    std::string text; ///< why there is no new file
    std::string code; ///< of the finding that is the reason; may be empty
    zi::Verdict before;
    std::optional<zi::RepairReport> report;
    std::optional<zi::Verdict> after;

    int exit_code() const
    {
        switch (outcome) {
        case Outcome::NOT_MENDED:
            return EXIT_BAD_FILE;
        case Outcome::NOTHING_TO_REPAIR:
            return EXIT_NOTHING_TO_REPAIR;
        default:
            return EXIT_FINE;
        }
    }
};

// ---------------------------------------------------------- What it says

/// A line of the report, when there is something to tell.
class Lines {
public:
    void count(uint64_t number, const char* one, const char* many)
    {
        if (number > 0)
            add(textf("%" PRIu64 " ", number) + (number == 1 ? one : many));
    }
    void add(const std::string& line) { m_text += "  " + printable(line) + '\n'; }
    std::string text() const { return m_text; }

private:
    std::string m_text;
};

std::string seconds_of_ms(int64_t ms)
{
    return seconds(ms * 10000);
}

void add_times(const zi::RepairReport& report, Lines* lines)
{
    constexpr size_t most_shown = 8;
    if (report.segments.size() == 1 && report.segments[0].shift != 0)
        lines->add(textf("times: %s s, so that the file begins at 0",
                         seconds_of_ms(report.segments[0].shift).c_str()));
    for (size_t i = 0; report.segments.size() > 1 && i < report.segments.size(); ++i) {
        if (i == most_shown) {
            lines->add(textf("... %zu parts in all", report.segments.size()));
            break;
        }
        const zi::Segment& segment = report.segments[i];
        if (!segment.empty())
            lines->add(textf("part %zu, from byte %" PRId64 ": %s to %s s becomes %s to %s s",
                             i + 1, segment.offset, seconds_of_ms(segment.min).c_str(),
                             seconds_of_ms(segment.max).c_str(),
                             seconds_of_ms(segment.start).c_str(),
                             seconds_of_ms(segment.end).c_str()));
    }
    lines->count(report.wraps, "time that begins again after 4 h 39 min goes on",
                 "times that begin again after 4 h 39 min go on");
}

std::string text_of(const zi::RepairReport& report)
{
    Lines lines;
    lines.count(report.cut_tags, "cut tag left out", "cut tags left out");
    lines.count(report.empty_tags, "tag without payload left out", "tags without payload left out");
    lines.count(report.early_ends, "end of sequence with frames after it left out",
                "ends of sequence with frames after them left out");
    lines.count(report.inner_headers, "inner FLV header left out", "inner FLV headers left out");
    lines.count(report.more_metadata, "later onMetaData left out", "later onMetaData left out");
    if (report.lost_ranges > 0)
        lines.add(textf("%" PRIu64 " damaged %s left out, %" PRId64 " bytes", report.lost_ranges,
                        report.lost_ranges == 1 ? "range" : "ranges", report.lost_bytes));
    for (const std::string& property : report.properties)
        lines.add("metadata: left out " + property);
    if (report.no_header)
        lines.add("a header put in front");
    else if (report.old_flags != report.new_flags)
        lines.add(textf("header flags %d in place of %d", report.new_flags, report.old_flags));
    lines.count(report.links, "wrong PreviousTagSize", "wrong PreviousTagSize");
    lines.count(report.stream_ids, "stream id that was not 0", "stream ids that were not 0");
    for (size_t i = 0; i < report.moved_config.size(); ++i) {
        if (report.moved_config[i])
            lines.add(
                textf("the configuration of the %s put in front", i == 0 ? "audio" : "video"));
    }
    lines.count(report.reordered, "tag put later, in the order of the times",
                "tags put later, in the order of the times");
    add_times(report, &lines);
    lines.count(report.steps_back, "step back in one stream's times stays",
                "steps back in one stream's times stay");
    lines.count(report.not_merged, "part stays in the order of the file",
                "parts stay in the order of the file");
    lines.add(textf("%" PRIu64 " tags, %s s, index of %zu entries, %" PRId64 " bytes (%" PRId64
                    " before)",
                    report.tags, seconds(std::llround(report.duration * 1e7)).c_str(),
                    report.index_entries, report.new_size, report.old_size));
    return lines.text();
}

void print(const RepairCommand& options, const Result& result)
{
    const std::string to = options.dry_run ? "" : " -> " + options.output;
    std::string text;
    switch (result.outcome) {
    case Outcome::WRITTEN:
    case Outcome::WOULD_WRITE:
        text = options.file + to + ": " +
               (result.outcome == Outcome::WRITTEN ? "repaired" : "would be repaired");
        break;
    case Outcome::NOTHING_TO_REPAIR:
        text = options.file + ": nothing to repair";
        break;
    case Outcome::NOT_MENDED:
        text = options.file + ": cannot be mended: " + result.text +
               (result.code.empty() ? "" : " (" + result.code + ")");
        break;
    }
    text = printable(text) + '\n';
    if (result.outcome != Outcome::NOTHING_TO_REPAIR)
        text += "  before: " + printable(result.before.sentence()) + '\n';
    if (result.after)
        text += "  after:  " + printable(result.after->sentence()) + '\n';
    if (result.report)
        text += text_of(*result.report);
    put(text);
}

Json json_of(const zi::RepairReport& report)
{
    Json segments = Json::array();
    for (const zi::Segment& segment : report.segments) {
        if (segment.empty())
            continue;
        segments.push_back({{"offset", segment.offset},
                            {"from_us", segment.min * 1000},
                            {"to_us", segment.max * 1000},
                            {"shift_us", segment.shift * 1000}});
    }
    return {{"dropped",
             {{"cut_tags", report.cut_tags},
              {"empty_tags", report.empty_tags},
              {"early_ends", report.early_ends},
              {"inner_headers", report.inner_headers},
              {"more_metadata", report.more_metadata},
              {"lost_ranges", report.lost_ranges},
              {"lost_bytes", report.lost_bytes},
              {"properties", report.properties}}},
            {"changed",
             {{"old_flags", report.no_header ? Json() : Json(report.old_flags)},
              {"flags", report.new_flags},
              {"previous_tag_sizes", report.links},
              {"stream_ids", report.stream_ids},
              {"moved_audio_configuration", report.moved_config[0]},
              {"moved_video_configuration", report.moved_config[1]},
              {"reordered", report.reordered},
              {"wraps", report.wraps},
              {"segments", segments}}},
            {"kept",
             {{"tags", report.tags},
              {"steps_back", report.steps_back},
              {"segments_not_merged", report.not_merged}}},
            {"index_entries", report.index_entries},
            {"duration_us", std::llround(report.duration * 1e6)},
            {"old_size", report.old_size},
            {"new_size", report.new_size}};
}

Json json_of_track(const zi::TrackReport& track)
{
    const zi::SeekTest* const seeks = track.seeks_in(zi::SeekMode::PREVIOUS);
    return {{"type", track.kind == zi::Kind::AUDIO ? "audio" : "video"},
            {"usable", track.usable()},
            {"expected", track.frames.expected},
            {"delivered", track.frames.delivered},
            {"targets", seeks ? seeks->landings.size() : 0},
            {"hits", seeks ? seeks->hits() : 0}};
}

Json json_of(const zi::Verdict& verdict)
{
    Json tracks = Json::array();
    for (const zi::TrackReport* track : {&verdict.device.video, &verdict.device.audio}) {
        if (track->tags > 0 || track->index >= 0)
            tracks.push_back(json_of_track(*track));
    }
    return {{"status", zi::name_of(verdict.status)},
            {"cause", verdict.cause ? Json(verdict.findings[*verdict.cause].code()) : Json()},
            {"text", verdict.sentence()},
            {"tracks", tracks}};
}

void print_json(const RepairCommand& options, const Result& result)
{
    const bool written = result.outcome == Outcome::WRITTEN;
    put_line({{"schema_version", schema_version},
              {"file", options.file},
              {"output", written ? Json(options.output) : Json()},
              {"outcome", OUTCOME_NAMES[static_cast<size_t>(result.outcome)]},
              {"reason", result.text.empty() ? Json() : Json(result.text)},
              {"code", result.code.empty() ? Json() : Json(result.code)},
              {"before", json_of(result.before)},
              {"after", result.after ? json_of(*result.after) : Json()},
              {"repair", result.report ? json_of(*result.report) : Json()}});
}

void print_json_of_failure(const RepairCommand& options, const char* reason)
{
    put_line({{"schema_version", schema_version},
              {"file", options.file},
              {"output", nullptr},
              {"outcome", "failed"},
              {"reason", reason},
              {"code", nullptr},
              {"before", nullptr},
              {"after", nullptr},
              {"repair", nullptr}});
}

// ---------------------------------------------------------- What it does

class Repairer {
public:
    Repairer(const RepairCommand& options, Session& session)
        : m_options(options), m_session(session), m_plugin(session.plugin())
    {
        m_device.profile = session.device();
    }

    Result run()
    {
        m_source = open_source(m_options.file);
        m_out = new_output();
        if (!m_out->seekable())
            throw Failure(EXIT_USAGE, m_options.output + " is no regular file");
        Result result;
        result.before = judge("checking " + m_options.file, m_source);
        if (!zi::wants_repair(result.before) && !m_options.always) {
            result.outcome = Outcome::NOTHING_TO_REPAIR;
            return result;
        }
        repair(&result);
        return result;
    }

private:
    /// Also what is not kept is written: only the new file itself shows what a device does with it.
    std::string target() const
    {
        return m_options.dry_run ? (std::filesystem::temp_directory_path() / "dry-run").string()
                                 : m_options.output;
    }

    zi::Verdict judge(const std::string& subject, std::shared_ptr<zoflv_host::DataSource> source)
    {
        Progress progress(subject, 0, !m_session.quiet());
        return zi::check(*m_plugin, std::move(source), m_device,
                         [&](int64_t done, int64_t) { progress.at(done); });
    }

    std::unique_ptr<OutputFile> new_output() const
    {
        return std::make_unique<OutputFile>(target(), m_options.force || m_options.dry_run);
    }

    void repair(Result* result)
    {
        bool settled = write_from(*m_source, m_out.get(), result);
        for (int round = 1; !settled && round < zi::MOST_ROUNDS; ++round) {
            const auto source = open_source(m_out->path());
            auto out = new_output();
            settled = write_from(*source, out.get(), result);
            m_out = std::move(out);
        }
        if (!result->text.empty())
            return;
        result->after = judge("checking " + m_options.output, open_source(m_out->path()));
        decide(result);
    }

    /// @return whether that is all: what was written is settled, or nothing was, for a reason
    bool write_from(zoflv_host::DataSource& file, OutputFile* out, Result* result)
    {
        zi::HostSource source(file);
        const zi::RepairPlan plan = [&] {
            Progress progress("reading " + m_options.file, 0, !m_session.quiet());
            return zi::plan_repair(source, working(progress));
        }();
        if (plan.error == zi::RepairError::READ_FAILED)
            throw Failure(EXIT_USAGE, zi::repair_error_text(plan.error));
        if (plan.error != zi::RepairError::NONE) {
            result->text = zi::repair_error_text(plan.error);
            if (result->before.cause)
                result->code = result->before.findings[*result->before.cause].code();
            return true;
        }
        if (result->report)
            result->report->go_on(plan.report);
        else
            result->report = plan.report;
        write(source, plan, out);
        return plan.settled;
    }

    void write(zi::ByteSource& source, const zi::RepairPlan& plan, OutputFile* out)
    {
        Progress progress("writing " + m_options.output, plan.end, !m_session.quiet());
        const zi::RepairError error = zi::write_repair(
            source, plan,
            [&](const void* bytes, size_t size) {
                out->write(bytes, size);
                return true;
            },
            working(progress));
        if (error != zi::RepairError::NONE)
            throw Failure(EXIT_USAGE, zi::repair_error_text(error));
        out->finish();
    }

    void decide(Result* result)
    {
        const zi::RepairProof proof = zi::prove_repair(result->before, *result->after);
        if (proof.worse || (!proof.better && !m_options.always)) {
            result->outcome = Outcome::NOT_MENDED;
            result->text = proof.text;
            result->code = proof.code;
            return;
        }
        result->outcome = Outcome::WOULD_WRITE;
        if (m_options.dry_run)
            return;
        m_out->publish();
        result->outcome = Outcome::WRITTEN;
    }

    zi::RepairOptions working(Progress& progress) const
    {
        return {m_options.times, [&progress](int64_t done) { progress.at(done); }};
    }

    const RepairCommand& m_options;
    Session& m_session;
    const PluginPtr m_plugin;
    zi::DeviceOptions m_device;
    std::shared_ptr<zoflv_host::DataSource> m_source;
    std::unique_ptr<OutputFile> m_out;
};

int repair(const RepairCommand& options, Session& session)
{
    if (options.output.empty() && !options.dry_run)
        throw Failure(EXIT_USAGE, "-o OUT is missing: the new file");
    if (!options.output.empty() && same_file(options.file, options.output))
        throw Failure(EXIT_USAGE, "the output would replace it");
    const Result result = [&] {
        try {
            return Repairer(options, session).run();
        } catch (const Failure& failure) {
            if (options.json)
                print_json_of_failure(options, failure.what());
            throw;
        } catch (const std::bad_alloc&) {
            if (options.json)
                print_json_of_failure(options, "out of memory");
            throw Failure(EXIT_USAGE, "out of memory"); // it says nothing of the file
        }
    }();
    if (options.json)
        print_json(options, result);
    else
        print(options, result);
    return result.exit_code();
}

} // namespace

Command add_repair(CLI::App& app)
{
    constexpr Help help = {
        "A new file that plays and seeks, from what is left of a damaged one",
        "  zoflv repair broken.flv -o whole.flv\n"
        "  zoflv repair --dry-run broken.flv          what it would do\n"
        "  zoflv repair --join-gaps broken.flv -o whole.flv",
        "Nothing is encoded again, and FILE is never touched. Header, sizes, times and keyframe\n"
        "index are made anew; what is damaged is left out. A device's plugin plays both files:\n"
        "OUT is there only when it is better in something and worse in nothing. It gets its name\n"
        "when it is whole; an existing file is not replaced without --force.",
        "0 OUT is written; 1 it cannot be mended, with the reason; 2 wrong usage, or a file, the\n"
        "plugin or the output cannot be opened, read or written; 3 nothing to repair",
    };
    const auto options = std::make_shared<RepairCommand>();
    CLI::App* command = add_command(app, "repair", help);
    add_file(command, &options->file);
    command->add_option("-o,--output", options->output, "The new file")->type_name("OUT");
    command->add_flag("--dry-run", options->dry_run,
                      "Say what would be done; what is written meanwhile is removed");
    command->add_flag("--always", options->always,
                      "Write OUT unless it is worse, also when nothing is to be repaired");
    command->add_flag("--force", options->force, "Replace a file that exists");
    command->add_flag("--keep-times", options->times.keep_times, "Leave all times as they are");
    command->add_flag("--join-gaps", options->times.join_gaps,
                      "Close gaps in the times that are longer than 10 s");
    add_json(command, &options->json);
    return {command, [options](Session& session) {
                session.plugin();
                int worst = EXIT_FINE;
                int code = EXIT_FINE;
                attempt(&worst, options->file, [&] { code = repair(*options, session); });
                return worst != EXIT_FINE ? worst : code;
            }};
}
