// SPDX-License-Identifier: Apache-2.0
/// @file
/// A result written to a file, which is there whole or not at all.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

/// Writes to a temporary file beside the target; publish() gives it the target's name. Removed when
/// it is destroyed before that, and when the process is interrupted or terminated.
///
/// Two targets are written directly, since they cannot be replaced: "-", which is stdout, and what
/// exists and is no regular file, such as a device or a pipe.
///
/// Every failure throws Failure with EXIT_USAGE; its text begins with the target's name.
class OutputFile {
public:
    /// @param force  a file that exists may be replaced; it keeps its permissions
    OutputFile(const std::string& target, bool force);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    void write(const void* bytes, size_t size);
    void write(std::string_view text) { write(text.data(), text.size()); }
    /// Overwrites bytes that were written, and goes on at the end. Only when `seekable()`.
    void rewrite(int64_t offset, const void* bytes, size_t size);
    bool seekable() const { return !m_temporary.empty(); }

    /// Brings everything to the disk. The file can be read under `path()` until it is published.
    void finish();
    /// Finishes, and gives the file its name.
    void publish();
    /// The temporary file's; of a target written directly, the target's.
    const std::string& path() const { return m_temporary.empty() ? m_target : m_temporary; }

private:
    struct Close {
        void operator()(std::FILE* file) const;
    };

    void open_temporary();

    std::string m_target;    ///< links resolved
    std::string m_temporary; ///< empty: written directly, or published
    const bool m_force;
    int m_slot = -1; ///< among the files that a signal removes
    std::unique_ptr<std::FILE, Close> m_file;
};

/// Whether both names are of one file, which exists.
bool same_file(const std::string& a, const std::string& b);
