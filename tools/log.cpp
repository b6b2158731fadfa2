// SPDX-License-Identifier: Apache-2.0
#include "tools/log.h"

#include "tools/output.h"

#include <android/log.h>

#include <cstdio>

LogTap::LogTap(bool shown)
    : m_shown(shown), m_sink([this](int prio, const std::string& tag, const std::string& text) {
          take(prio, tag, text);
      })
{}

void LogTap::take(int prio, const std::string& tag, const std::string& text)
{
    const bool minor = tag == "zoflvd_rdbuf" || tag == "zoflvd_metadata";
    if (prio >= ANDROID_LOG_ERROR && (m_first_error.empty() || (m_minor && !minor))) {
        m_first_error = text;
        m_minor = minor;
    }
    if (!m_shown)
        return;
    const char letter = prio >= ANDROID_LOG_ERROR ? 'E' : prio == ANDROID_LOG_WARN ? 'W' : 'I';
    const std::string line = letter + (' ' + printable(tag + ": " + text)) + '\n';
    std::fwrite(line.data(), 1, line.size(), stderr);
}
