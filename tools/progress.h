// SPDX-License-Identifier: Apache-2.0
/// @file
/// How far long work has come: one line on a terminal, nothing anywhere else.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

/// Shows bytes, per cent, rate and time left on stderr from the first second on, when that is a
/// terminal; takes the line away at its end. Results must not go to the same terminal meanwhile.
class Progress {
public:
    /// @param total  bytes of the work, 0 when unknown
    /// @param shown  false: nothing ever
    Progress(std::string subject, int64_t total, bool shown);
    ~Progress() { clear(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// Cheap enough for each frame.
    /// @param done  bytes
    void at(int64_t done)
    {
        if (m_shown && ++m_calls % calls_per_look == 0)
            look(done);
    }
    /// Takes the line away, so that something else can be written.
    void clear();

private:
    using Clock = std::chrono::steady_clock;
    static constexpr unsigned calls_per_look = 16; // so that small frames do not ask for the time

    void look(int64_t done);

    const std::string m_subject;
    const int64_t m_total;
    const bool m_shown;
    bool m_drawn = false;
    unsigned m_calls = 0;
    const Clock::time_point m_start = Clock::now();
    Clock::time_point m_next;
};

/// "1.4 GB", "320 kB", "17 bytes": three digits, powers of 1000.
std::string size_text(double bytes);
