// SPDX-License-Identifier: Apache-2.0
/// @file
/// Positioned reads of a file, small ones served from memory.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <sys/types.h>
#include <zoflv_host/data_source.h>

namespace zoflv_host {

/// A few windows over a file, each of which moves on with one reader: what lies right after a read
/// is fetched together with it, 4 KiB after a jump and up to 64 KiB in a sequence. A read takes first
/// what a window holds; the rest goes straight into the caller's memory. A window keeps what it held
/// before its last move: readers near each other share one.
///
/// For any number of threads, none of which ever waits: each window has a flag that a reader sets for
/// the length of a read, and who finds it set looks for another window, or reads without one.
///
/// The file may change its length meanwhile. What a window holds is served until the window moves;
/// beyond, a read finds what is there then.
class FileWindows {
public:
    /// @param fd  a regular file; not owned
    explicit FileWindows(int fd) : m_fd(fd) {}
    FileWindows(const FileWindows&) = delete;
    FileWindows& operator=(const FileWindows&) = delete;

    /// @return the bytes read, fewer than `size` at the end of the file or when the system fails
    ///         after them; -1 when it fails before, and for a bad argument
    ssize_t read(int64_t offset, uint8_t* data, size_t size);

    /// The sum over all threads.
    ReadCounts counts() const;

private:
    static constexpr size_t window_count = 4; // two streams, the file's open, one to spare
    static constexpr size_t part_count = 2;   // of a window
    static constexpr size_t cache_line = 64;  // bytes: threads do not write to each other's

    /// Bytes of the file.
    struct Part {
        int64_t start = 0;
        size_t length = 0;
        std::unique_ptr<uint8_t[]> bytes;

        size_t copy(int64_t offset, uint8_t* data, size_t size) const;
    };
    /// Of reads: calls, and the bytes that they delivered.
    struct Counters {
        std::atomic<uint64_t> reads{0}, bytes{0};
    };

    /// What only the thread that has set `taken` touches, but for the atomic members, which others
    /// look at to choose a window.
    struct alignas(cache_line) Window {
        std::atomic<bool> taken{false};
        std::atomic<int64_t> last{-1};   ///< where the last read ended; -1: never used
        std::atomic<uint64_t> filled{0}; ///< number of the fill that made its content
        std::atomic<size_t> around{0};   ///< bytes fetched for a step back; 0: for a step on
        Counters counters;               ///< written only while taken
        size_t ahead = 0;                ///< bytes read ahead when it was filled
        std::array<Part, part_count> parts;
        size_t next = 0; ///< the part to be filled next: the one filled longest ago

        size_t copy(int64_t offset, uint8_t* data, size_t size) const;
    };
    /// A copy of where a part begins and its length, which change with a fill only: who looks for a
    /// window does not touch the line that every read writes to.
    struct Extent {
        std::atomic<int64_t> start{0};
        std::atomic<size_t> length{0};

        bool holds(int64_t offset) const;
    };
    class Release;
    using Taken = std::unique_ptr<Window, Release>;

    static Taken take(Window* window);
    Taken take_and_copy(size_t extent, int64_t offset, uint8_t* data, size_t size, size_t* done);
    Taken search_and_copy(int64_t offset, uint8_t* data, size_t size, size_t* done);
    Taken take_oldest();
    Taken take_near(int64_t offset, size_t size, size_t* around);

    size_t copy_rest(const Window& window, int64_t offset, uint8_t* data, size_t size);
    ssize_t read_elsewhere(int64_t offset, uint8_t* data, size_t size);
    ssize_t read_on(Window* window, int64_t offset, uint8_t* data, size_t size);
    ssize_t read_around(Window* window, size_t around, int64_t offset, uint8_t* data, size_t size);
    ssize_t read_system(int64_t offset, uint8_t* data, size_t size, uint8_t* more = nullptr,
                        size_t more_size = 0);
    static Part* next_part(Window* window);
    void set_content(Window* window, int64_t start, size_t length);
    static void finish(Window* window, int64_t offset, size_t done);
    void finish_without(size_t done);

    const int m_fd;
    std::array<Window, window_count> m_windows;
    alignas(cache_line) std::array<Extent, window_count * part_count> m_extents;
    std::atomic<size_t> m_recent{0}; ///< the extent to look at first
    // Written with a system call at most, but for reads without a window.
    alignas(cache_line) std::atomic<uint64_t> m_fills{0};
    std::atomic<uint64_t> m_system_reads{0}, m_system_bytes{0};
    Counters m_others; // of reads without a window
};

} // namespace zoflv_host
