// SPDX-License-Identifier: Apache-2.0
/// @file
/// Takes the place of the platform log in a test program.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

/// Holds what is logged, by any thread, while it exists; one at a time. What is logged while there
/// is none is dropped. To be asked while no other thread logs.
class LogCapture {
public:
    using Lines = std::vector<std::string>;

    LogCapture() { start(true); }
    ~LogCapture() { start(false); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    const Lines& lines() const; ///< "E zoflvd: text": the priority's initial, the tag, the text
    Lines texts() const;        ///< the texts alone

    /// Compares lines() with `expected`, and empties the capture. In an expected line, `*` stands
    /// for any characters, and the text "#127" for the failed check "assert!, [zoflv/dmx/<tag>:
    /// 127]".
    ///     EXPECT_TRUE(log.is({"E zoflvd: #127", "E zoflvd: zoflvd_create() failed"}));
    ::testing::AssertionResult is(const Lines& expected);

    /// Whether one of lines() matches.
    bool has(const std::string& expected) const;

private:
    static void start(bool on);
};
