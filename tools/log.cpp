// SPDX-License-Identifier: Apache-2.0
#include "tools/log.h"

#include "tools/output.h"

#include <android/log.h>

#include <cstdio>
#include <cstdlib>

namespace {

/// The result code in a message of the plugin, 0 when there is none.
int code_in(const std::string& text)
{
    for (const char* const word : {"retval", "zoflvd_create() failed("}) {
        const size_t found = text.find(word);
        const size_t digits = text.find_first_of("-0123456789", found);
        if (found != std::string::npos && digits != std::string::npos)
            return std::atoi(&text[digits]);
    }
    return 0;
}

} // namespace

LogTap::LogTap(bool shown)
    : m_shown(shown), m_sink([this](int prio, const std::string& tag, const std::string& text) {
          take(prio, tag, text);
      })
{}

void LogTap::take(int prio, const std::string& tag, std::string text)
{
    if (!text.empty() && text.back() == '\n')
        text.pop_back();
    if (prio >= ANDROID_LOG_ERROR) {
        const bool minor = tag == "zoflvd_rdbuf" || tag == "zoflvd_metadata";
        if (++m_now.count <= 2)
            m_now.head += text + '\n';
        if (m_now.error.empty() || (m_now.minor && !minor)) {
            m_now.error = text;
            m_now.minor = minor;
        }
    }
    const int code = tag == "ZoFLVExtractor" ? code_in(text) : 0;
    if (code != 0)
        m_now.plugin_code = code;
    if (!m_shown)
        return;
    const char letter = prio >= ANDROID_LOG_ERROR ? 'E' : prio == ANDROID_LOG_WARN ? 'W' : 'I';
    const std::string line = letter + (' ' + printable(tag + ": " + text)) + '\n';
    std::fwrite(line.data(), 1, line.size(), stderr);
}

const std::string& LogTap::first_error() const
{
    const bool gives_way = m_before.minor && !m_now.error.empty() && !m_now.minor;
    return m_before.error.empty() || gives_way ? m_now.error : m_before.error;
}

bool LogTap::empty_avc_tag() const
{
    return m_now.head == "assert!, [zoflv/dmx/zoflvd: 982]\nassert!, [zoflv/dmx/zoflvd: 1146]\n";
}
