// SPDX-License-Identifier: Apache-2.0
#include "tools/commands.h"
#include "tools/elementary.h"
#include "tools/file.h"
#include "tools/frame_reader.h"
#include "tools/progress.h"

namespace {

struct ExtractOptions {
    std::string file, output;
    int track = -1; ///< -1: the only one
    bool raw = false;
    bool partial = false;
    bool force = false;
};

int chosen_track(const ExtractOptions& options, int count)
{
    if (options.track < 0 && count > 1)
        throw Failure(EXIT_USAGE, textf("it has %d tracks: --track N picks one", count));
    return select_numbers("track", options.track, count).front();
}

void extract(const ExtractOptions& options, Session& session)
{
    if (same_file(options.file, options.output))
        throw Failure(EXIT_USAGE, "the output would replace it");
    const ExtractorPtr extractor = open_extractor(session.plugin(), options.file, session.log());
    const int index = chosen_track(options, static_cast<int>(extractor->count_tracks()));
    const auto reader = read_track(*extractor, index, session.log());
    zoflv_host::Format format;
    extractor->track_format(static_cast<size_t>(index), &format);
    const std::unique_ptr<ElementaryWriter> writer =
        make_writer(format, options.output, options.raw, options.force);
    Progress progress(options.file, reader->file_size(), !session.quiet());
    long long count = 0;
    for (Frame frame{}; reader->next(&frame); ++count) {
        writer->frame(frame.data, frame.size, frame.time);
        if (frame.place)
            progress.at(frame.place->offset);
    }
    const Ending end = reader->ending();
    if (end.reason.empty() || options.partial)
        writer->finish();
    progress.clear();
    if (!end.reason.empty())
        throw Failure(EXIT_BAD_FILE,
                      textf("track %d: reading ended after %lld frames%s: ", index, count,
                            options.partial ? "" : " (--partial keeps them)") +
                          end.reason);
}

} // namespace

Command add_extract(CLI::App& app)
{
    constexpr Help help = {
        "One track as a file of its own, as the decoder gets it",
        "  zoflv extract --track 1 -o picture.h264 recording.flv\n"
        "  zoflv extract --track 0 -o sound.aac recording.flv\n"
        "  zoflv extract --track 0 -o - recording.flv | ffplay -",
        "AVC becomes Annex B with its parameter sets in front, AAC ADTS; MPEG audio stays as it\n"
        "is, PCM and G.711 become WAV. Of anything else the frames are written one after the\n"
        "other, with their offsets, sizes and times in FILE.csv beside it. The file gets its name\n"
        "when it is whole; \"-\" is stdout. An existing file is not replaced without --force.",
    };
    const auto options = std::make_shared<ExtractOptions>();
    CLI::App* command = add_command(app, "extract", help);
    add_file(command, &options->file);
    add_number(command, "--track", &options->track, "Which one, counted from 0, as info shows it");
    command->add_option("-o,--output", options->output, "The file to write, \"-\" for stdout")
        ->required()
        ->type_name("FILE");
    command->add_flag("--raw", options->raw, "Frames and their sizes, whatever the codec");
    command->add_flag("--partial", options->partial, "Keep what was read when reading fails");
    command->add_flag("--force", options->force, "Replace a file that exists");
    return {command, [options](Session& session) {
                session.plugin();
                int worst = EXIT_FINE;
                attempt(&worst, options->file, [&] { extract(*options, session); });
                return worst;
            }};
}
