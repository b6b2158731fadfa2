// SPDX-License-Identifier: Apache-2.0
/// @file
/// The files that a command is to work on: those named on its command line, and those in a list.
#pragma once

#include <cstddef>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

/// Gives one name after the other; of a list it holds one at a time.
class FileNames {
public:
    /// Throws SetupFailure when the list cannot be opened.
    /// @param list  file of names that end with a NUL byte; "-": standard input; empty: no list
    FileNames(std::vector<std::string> named, std::string list);

    /// Throws Failure when the list cannot be read on, or is not one; not to be called again then.
    /// @return whether there was one more
    bool next(std::string* name);
    /// Whether there may be more than one.
    bool several() const { return m_list || m_named.size() > 1; }

private:
    bool next_in_list(std::string* name);

    const std::vector<std::string> m_named;
    size_t m_at = 0;
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> m_list{nullptr, std::fclose};
};
