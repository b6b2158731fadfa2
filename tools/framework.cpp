// SPDX-License-Identifier: Apache-2.0
#include "tools/framework.h"

#include "tools/file.h"
#include "tools/output.h"

#include <filesystem>

namespace {

/// Where the plugin lies when none is named; empty when it is not there.
std::string find_plugin()
{
    std::error_code error;
    const std::filesystem::path command = std::filesystem::read_symlink("/proc/self/exe", error);
    for (const char* const folder : {".", "../libextractor", ZOFLV_PLUGIN_FOLDER}) {
        const auto path = command.parent_path() / folder / "libzoflvextractor.so";
        if (path.is_absolute() && std::filesystem::exists(path, error))
            return path.lexically_normal().string();
    }
    return {};
}

} // namespace

PluginPtr load_plugin(std::string path)
{
    if (path.empty())
        path = find_plugin();
    if (path.empty())
        throw Failure(EXIT_USAGE, "neither beside the command nor installed (--plugin names it)");
    std::string why;
    PluginPtr plugin = zoflv_host::ExtractorLibrary::load(path, &why);
    if (!plugin)
        throw Failure(EXIT_USAGE, path + " cannot be loaded: " + why);
    return plugin;
}

ExtractorPtr open_extractor(const PluginPtr& plugin, const std::string& path, LogTap& log)
{
    const std::shared_ptr<zoflv_host::DataSource> source = open_source(path);
    log.reset();
    std::string why;
    ExtractorPtr extractor = plugin->open(source, &why);
    if (!extractor)
        throw not_flv(*source, why);
    if (extractor->count_tracks() == 0 && log.plugin_code() != 0)
        throw not_flv(*source, reason(log.plugin_code(), log));
    if (extractor->count_tracks() == 0)
        throw Failure(EXIT_BAD_FILE, "the plugin gives no track: " + reason(0, log));
    return extractor;
}

std::unique_ptr<zoflv_host::Track> start_track(zoflv_host::Extractor& extractor, int index,
                                               LogTap& log)
{
    log.reset();
    std::unique_ptr<zoflv_host::Track> track = extractor.track(static_cast<size_t>(index));
    if (!track)
        throw Failure(EXIT_BAD_FILE, textf("track %d: the plugin does not give it", index));
    const media_status_t status = track->start();
    if (status != AMEDIA_OK)
        throw Failure(EXIT_BAD_FILE,
                      textf("track %d cannot be started: ", index) + reason(status, log));
    return track;
}
