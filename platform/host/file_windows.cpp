// SPDX-License-Identifier: Apache-2.0
#include "file_windows.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <sys/uio.h>
#include <unistd.h>
#if __has_include(<sys/single_threaded.h>)
#include <sys/single_threaded.h>
#endif

namespace zoflv_host {

namespace {

constexpr ssize_t READ_FAILED = -1;
constexpr size_t KIB = 1024;
constexpr size_t LEAST_AHEAD = 4 * KIB;
constexpr size_t MOST_AHEAD = 64 * KIB;
// A window placed before a reader that steps back grows less: such searches are short.
constexpr size_t MOST_AROUND = 16 * KIB;
// A read of so many bytes costs a system call less than it would to copy it twice.
constexpr size_t LARGE_READ = 32 * KIB;
// A read of so many bytes stays in the window too, and so does a step of so many: another reader near may
// want them. More are one reader's frame.
constexpr size_t SMALL_READ = 4 * KIB;
// Still in sequence: what a reader skips at most between two reads, when it is not a whole large frame.
constexpr int64_t SHORT_STEP = 32 * KIB;
// Still the same reader: a tag of the other stream holds at most 2^24 bytes.
constexpr int64_t LONG_STEP = int64_t{1} << 24;

constexpr auto RELAXED = std::memory_order_relaxed;

/// Adds to a number that no other thread writes now.
void bump(std::atomic<uint64_t>* number, uint64_t more)
{
    number->store(number->load(RELAXED) + more, RELAXED);
}

} // namespace

class FileWindows::Release {
public:
    void operator()(Window* window) const { window->taken.store(false, std::memory_order_release); }
};

ReadCounts FileWindows::counts() const
{
    ReadCounts sum = {m_others.reads.load(RELAXED), m_others.bytes.load(RELAXED),
                      m_system_reads.load(RELAXED), m_system_bytes.load(RELAXED)};
    for (const Window& window : m_windows) {
        sum.reads += window.counters.reads.load(RELAXED);
        sum.bytes += window.counters.bytes.load(RELAXED);
    }
    return sum;
}

/// Whether so many bytes from `start` on hold the one at the offset; neither offset is negative.
inline bool within(int64_t start, size_t length, int64_t offset)
{
    return static_cast<uint64_t>(offset) - static_cast<uint64_t>(start) < length;
}

inline bool FileWindows::Extent::holds(int64_t offset) const
{
    return within(start.load(RELAXED), length.load(RELAXED), offset);
}

/// @return the bytes copied, 0 when the part does not hold the one at the offset
inline size_t FileWindows::Part::copy(int64_t offset, uint8_t* data, size_t size) const
{
    if (!within(start, length, offset))
        return 0;
    const size_t at = static_cast<size_t>(offset - start);
    const size_t n = std::min(size, length - at);
    std::memcpy(data, bytes.get() + at, n);
    return n;
}

/// The same of any part.
inline size_t FileWindows::Window::copy(int64_t offset, uint8_t* data, size_t size) const
{
    for (const Part& part : parts) {
        if (const size_t done = part.copy(offset, data, size))
            return done;
    }
    return 0;
}

/// Whether no other thread can be there: an exchange costs as much as the rest of a small read.
inline bool is_only_thread()
{
#if __has_include(<sys/single_threaded.h>)
    return __libc_single_threaded != 0;
#else
    return false;
#endif
}

inline FileWindows::Taken FileWindows::take(Window* window)
{
    if (window->taken.load(RELAXED))
        return nullptr;
    if (is_only_thread())
        window->taken.store(true, RELAXED);
    else if (window->taken.exchange(true, std::memory_order_acquire))
        return nullptr;
    return Taken(window);
}

/// The window with a part, if that holds the byte at the offset and was free; or null.
/// @param done  set to the bytes copied from it, 1 at least
[[gnu::always_inline]] inline FileWindows::Taken
FileWindows::take_and_copy(size_t extent, int64_t offset, uint8_t* data, size_t size, size_t* done)
{
    if (!m_extents[extent].holds(offset))
        return nullptr;
    Taken window = take(&m_windows[extent / part_count]);
    if (!window)
        return nullptr;
    *done = window->parts[extent % part_count].copy(offset, data, size);
    if (*done == 0) // it has moved meanwhile
        return nullptr;
    return window;
}

/// The same of any part.
FileWindows::Taken FileWindows::search_and_copy(int64_t offset, uint8_t* data, size_t size,
                                                size_t* done)
{
    for (size_t i = 0; i < m_extents.size(); ++i) {
        if (Taken window = take_and_copy(i, offset, data, size, done)) {
            m_recent.store(i, RELAXED);
            return window;
        }
    }
    return nullptr;
}

/// The window that was filled longest ago and is free, emptied; or null.
FileWindows::Taken FileWindows::take_oldest()
{
    for (size_t tries = 0; tries < window_count; ++tries) {
        Window* oldest = nullptr;
        for (Window& window : m_windows) {
            if (!window.taken.load(RELAXED) &&
                (!oldest || window.filled.load(RELAXED) < oldest->filled.load(RELAXED)))
                oldest = &window;
        }
        if (!oldest)
            break;
        if (Taken window = take(oldest)) {
            window->ahead = 0;
            return window;
        }
    }
    return nullptr;
}

/// A window for a read that none holds: the one whose reader it continues, else the oldest; or null.
/// @param around  bytes to fetch around the read, when it steps back from where one ended, as searches
///                from tag to tag do; 0: read ahead
FileWindows::Taken FileWindows::take_near(int64_t offset, size_t size, size_t* around)
{
    *around = 0;
    Window* closest = nullptr;
    int64_t step = LONG_STEP + 1;
    int64_t back = SHORT_STEP + 1;
    for (Window& window : m_windows) {
        const int64_t last = window.last.load(RELAXED);
        if (last < 0)
            continue;
        if (last <= offset && offset - last < step) {
            step = offset - last;
            closest = &window;
        } else if (last > offset && last - offset < back) {
            back = last - offset;
            *around = std::clamp(2 * window.around.load(RELAXED), LEAST_AHEAD, MOST_AROUND);
        }
    }
    if (closest && step <= back) {
        *around = 0;
        if (Taken window = take(closest)) {
            if (step > SHORT_STEP)
                window->ahead = 0;
            return window;
        }
    }
    if (size > LEAST_AHEAD / 4)
        *around = 0;
    return take_oldest();
}

/// Reads into one block and then into a second. Goes on after a short count of the system until the
/// first is full or the file ends.
/// @return bytes read into both; READ_FAILED when the system failed before any
ssize_t FileWindows::read_system(int64_t offset, uint8_t* data, size_t size, uint8_t* more,
                                 size_t more_size)
{
    size_t done = 0;
    do {
        iovec blocks[2] = {{data + done, size - done}, {more, more_size}};
        const ssize_t n =
            ::preadv64(m_fd, blocks, more_size > 0 ? 2 : 1, offset + static_cast<int64_t>(done));
        m_system_reads.fetch_add(1, RELAXED);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 && done == 0)
            return READ_FAILED;
        if (n <= 0)
            break;
        done += static_cast<size_t>(n);
    } while (done < size);
    m_system_bytes.fetch_add(done, RELAXED);
    return static_cast<ssize_t>(done);
}

/// The part that a window fills next, with memory; null when there is none.
FileWindows::Part* FileWindows::next_part(Window* window)
{
    Part* const part = &window->parts[window->next];
    if (!part->bytes)
        part->bytes.reset(new (std::nothrow) uint8_t[MOST_AHEAD]);
    return part->bytes ? part : nullptr;
}

/// Says what the window's next part was filled with.
void FileWindows::set_content(Window* window, int64_t start, size_t length)
{
    const size_t index = window->next;
    window->parts[index].start = start;
    window->parts[index].length = length;
    window->next = (index + 1) % part_count;
    window->filled.store(m_fills.fetch_add(1, RELAXED) + 1, RELAXED);
    Extent& extent = m_extents[static_cast<size_t>(window - m_windows.data()) * part_count + index];
    extent.start.store(start, RELAXED);
    extent.length.store(length, RELAXED);
}

/// Reads from the system, and into the window what comes next; with a small read all since its last fill.
ssize_t FileWindows::read_on(Window* window, int64_t offset, uint8_t* data, size_t size)
{
    window->ahead =
        size >= LARGE_READ ? LEAST_AHEAD : std::clamp(2 * window->ahead, LEAST_AHEAD, MOST_AHEAD);
    window->around.store(0, RELAXED);
    const Part* const part = next_part(window);
    if (!part)
        return read_system(offset, data, size);
    if (size <= SMALL_READ) {
        const Part& last = window->parts[(window->next + 1) % part_count];
        const int64_t end = last.start + static_cast<int64_t>(last.length);
        const int64_t start = within(end, SMALL_READ, offset) ? end : offset;
        const size_t wanted = static_cast<size_t>(offset - start) + size + window->ahead;
        const ssize_t n = read_system(start, part->bytes.get(), std::min(wanted, MOST_AHEAD));
        set_content(window, start, n > 0 ? static_cast<size_t>(n) : 0);
        const size_t done = window->copy(offset, data, size);
        return done > 0 ? static_cast<ssize_t>(done) : std::min(n, ssize_t{0});
    }
    const ssize_t n = read_system(offset, data, size, part->bytes.get(), window->ahead);
    const size_t got = n > 0 ? static_cast<size_t>(n) : 0;
    const size_t given = std::min(got, size);
    set_content(window, offset + static_cast<int64_t>(given), got - given);
    return n < 0 ? n : static_cast<ssize_t>(given);
}

/// Fills the window with `around` bytes, three quarters of them before the end of the read.
ssize_t FileWindows::read_around(Window* window, size_t around, int64_t offset, uint8_t* data,
                                 size_t size)
{
    const int64_t before = static_cast<int64_t>(around / 4 * 3 - size);
    const int64_t start = std::max(offset - before, int64_t{0});
    const Part* const part = next_part(window);
    if (!part)
        return read_system(offset, data, size);
    window->around.store(around, RELAXED);
    const ssize_t n = read_system(start, part->bytes.get(), around);
    set_content(window, start, n > 0 ? static_cast<size_t>(n) : 0);
    const size_t done = window->copy(offset, data, size);
    return done > 0 ? static_cast<ssize_t>(done) : std::min(n, ssize_t{0});
}

inline void FileWindows::finish(Window* window, int64_t offset, size_t done)
{
    window->last.store(offset + static_cast<int64_t>(done), RELAXED);
    bump(&window->counters.reads, 1);
    bump(&window->counters.bytes, done);
}

void FileWindows::finish_without(size_t done)
{
    m_others.reads.fetch_add(1, RELAXED);
    m_others.bytes.fetch_add(done, RELAXED);
}

/// Copies what the window's other part holds of a read, or what another window does.
/// @return the bytes copied
size_t FileWindows::copy_rest(const Window& window, int64_t offset, uint8_t* data, size_t size)
{
    size_t done = window.copy(offset, data, size);
    if (done == 0)
        search_and_copy(offset, data, size, &done);
    return done;
}

/// A read that no window holds the beginning of.
ssize_t FileWindows::read_elsewhere(int64_t offset, uint8_t* data, size_t size)
{
    size_t around = 0;
    const Taken window = take_near(offset, size, &around);
    ssize_t n = 0;
    if (!window)
        n = read_system(offset, data, size);
    else if (around > 0)
        n = read_around(window.get(), around, offset, data, size);
    else
        n = read_on(window.get(), offset, data, size);
    const size_t done = n > 0 ? static_cast<size_t>(n) : 0;
    if (window)
        finish(window.get(), offset, done);
    else
        finish_without(done);
    return n;
}

ssize_t FileWindows::read(int64_t offset, uint8_t* data, size_t size)
{
    // No file is so long; below, offsets can be added to.
    constexpr uint64_t end_of_offsets = INT64_MAX - MOST_AHEAD;
    const bool bad = offset < 0 || (!data && size > 0);
    if (bad || size == 0 || size > end_of_offsets ||
        static_cast<uint64_t>(offset) > end_of_offsets - size) {
        finish_without(0);
        return bad ? READ_FAILED : 0;
    }
    size_t done = 0;
    Taken window = take_and_copy(m_recent.load(RELAXED), offset, data, size, &done);
    if (!window)
        window = search_and_copy(offset, data, size, &done);
    if (!window)
        return read_elsewhere(offset, data, size);
    if (done < size)
        done += copy_rest(*window, offset + static_cast<int64_t>(done), data + done, size - done);
    if (done < size) {
        const ssize_t n =
            read_on(window.get(), offset + static_cast<int64_t>(done), data + done, size - done);
        done += n > 0 ? static_cast<size_t>(n) : 0;
    }
    finish(window.get(), offset, done);
    return static_cast<ssize_t>(done);
}

} // namespace zoflv_host
