// SPDX-License-Identifier: Apache-2.0
#include "tools/progress.h"

#include "tools/output.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

constexpr std::chrono::milliseconds first_after(1000), next_after(200);

/// Columns of the terminal on stderr.
size_t columns()
{
    winsize size = {};
    const bool known = ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return known ? size.ws_col : 80;
}

/// At most so many bytes, no character cut. A longer line would wrap and stay.
std::string cut(std::string text, size_t most)
{
    if (text.size() <= most)
        return text;
    while (most > 0 && (static_cast<unsigned char>(text[most]) & 0xC0) == 0x80)
        --most;
    text.resize(most);
    return text;
}

std::string time_text(double left)
{
    const auto whole = static_cast<long long>(std::min(left + 0.5, 1e9));
    if (whole < 60)
        return textf("%lld s", whole);
    if (whole < 3600)
        return textf("%lld:%02lld min", whole / 60, whole % 60);
    return textf("%lld:%02lld h", whole / 3600, whole / 60 % 60);
}

} // namespace

std::string size_text(double bytes)
{
    constexpr const char* units[] = {"bytes", "kB", "MB", "GB", "TB"};
    size_t unit = 0;
    for (; bytes >= 999.5 && unit + 1 < std::size(units); ++unit)
        bytes /= 1000;
    const int decimals = unit == 0 || bytes >= 99.95 ? 0 : bytes >= 9.995 ? 1 : 2;
    return textf("%.*f %s", decimals, bytes, units[unit]);
}

Progress::Progress(std::string subject, int64_t total, bool shown)
    : m_subject(std::move(subject)), m_total(total), m_shown(shown && ::isatty(STDERR_FILENO) != 0),
      m_next(m_start + first_after)
{}

void Progress::look(int64_t done)
{
    const Clock::time_point now = Clock::now();
    if (now < m_next)
        return;
    m_next = now + next_after;
    const double elapsed = std::chrono::duration<double>(now - m_start).count();
    const double rate = static_cast<double>(done) / elapsed;
    std::string line = size_text(static_cast<double>(done));
    if (m_total > 0)
        line += " of " + size_text(static_cast<double>(m_total)) +
                textf(", %d %%", static_cast<int>(100.0 * static_cast<double>(done) /
                                                  static_cast<double>(m_total)));
    line += ", " + size_text(rate) + "/s";
    if (m_total > done && rate > 0)
        line += ", " + time_text(static_cast<double>(m_total - done) / rate) + " left";
    line = "\r" + cut(line + "  " + printable(m_subject), columns() - 1) + "\x1b[K";
    std::fwrite(line.data(), 1, line.size(), stderr);
    m_drawn = true;
}

void Progress::clear()
{
    if (m_drawn)
        std::fputs("\r\x1b[K", stderr);
    m_drawn = false;
}
