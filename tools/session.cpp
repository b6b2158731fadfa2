// SPDX-License-Identifier: Apache-2.0
#include "tools/session.h"

#include <fstream>
#include <new>
#include <sstream>

namespace {

zoflv_inspect::DeviceProfile read_device(const std::string& path)
{
    if (path.empty())
        return zoflv_inspect::default_device_profile();
    std::ifstream file(path);
    if (!file)
        throw SetupFailure(path, "the device profile cannot be opened");
    std::ostringstream text;
    text << file.rdbuf(); // nothing of a folder, which is no JSON then
    std::string error;
    const auto profile = zoflv_inspect::parse_device_profile(text.str(), &error);
    if (!profile)
        throw SetupFailure(path, "no device profile: " + error);
    return *profile;
}

} // namespace

void attempt_file(int* worst, const std::string& file, bool json, const std::function<void()>& work)
{
    const auto tell = [&](const char* status, const char* reason) {
        if (json)
            put_line({{"schema_version", schema_version},
                      {"file", file},
                      {"status", status},
                      {"reason", reason}});
    };
    attempt(worst, file, [&] {
        try {
            work();
        } catch (const OutputFailure&) {
            throw;
        } catch (const Failure& failure) {
            tell(failure.code() == EXIT_BAD_FILE ? "refused" : "failed", failure.what());
            throw;
        } catch (const std::bad_alloc&) {
            tell("failed", "out of memory");
            throw;
        }
    });
}

Session::Session(const SharedOptions& options)
    : m_options(options), m_log(options.verbose), m_device(read_device(options.device))
{
    zoflv_host::set_device(zoflv_inspect::device_settings(m_device));
}

const PluginPtr& Session::plugin()
{
    if (m_plugin)
        return m_plugin;
    try {
        m_plugin = load_plugin(m_options.plugin);
    } catch (const Failure& failure) {
        throw SetupFailure("plugin", failure.what());
    }
    return m_plugin;
}
