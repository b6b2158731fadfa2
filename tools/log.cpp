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
    m_reasons->take(prio >= ANDROID_LOG_ERROR, tag, text);
    if (!m_shown)
        return;
    const char letter = prio >= ANDROID_LOG_ERROR ? 'E' : prio == ANDROID_LOG_WARN ? 'W' : 'I';
    const bool ended = !text.empty() && text.back() == '\n';
    const std::string shown = ended ? text.substr(0, text.size() - 1) : text;
    const std::string line = letter + (' ' + printable(tag + ": " + shown)) + '\n';
    std::fwrite(line.data(), 1, line.size(), stderr);
}
