// SPDX-License-Identifier: Apache-2.0
#include "tools/session.h"

#include <fstream>
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
