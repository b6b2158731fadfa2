// SPDX-License-Identifier: Apache-2.0
/// @file
/// A file-access record over bytes in memory that counts its calls and can make them fail.
#pragma once

#include "tests/support/flv_builder.h"
#include "zoflv/dmx/zocmn_mfal.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>

/// Handles may be used on several threads at once; counting adds no order between the threads.
class MemFile {
public:
    enum Kind { Open, Close, Read, GetPos, SetPos, Skip, GetSize, Any };
    static constexpr int ALL_BUT_ONE = -2; ///< a read result: one byte less than asked for

    explicit MemFile(const Bytes& bytes)
        : reported_size(static_cast<long long>(bytes.size())), data(bytes)
    {}
    ~MemFile()
    {
        if (open_handles == 0)
            return;
        std::fprintf(stderr, "file handles left open: %d\n", open_handles.load());
        std::abort(); // also in programs without a test framework
    }
    MemFile(const MemFile&) = delete;
    MemFile& operator=(const MemFile&) = delete;

    _ZOCMN_MFAL* mfal() { return &record; }

    void* fh() { return &own; } ///< a handle of the test's own: opened uncounted, never closed
    long long tell() const { return own.pos; }
    MemFile& seek(long long pos) ///< puts fh() there, uncounted
    {
        own.pos = pos;
        return *this;
    }

    /// Makes the `n`-th call of `kind`, from 0, fail, and when `sticky` every later one: null or
    /// -1, for a read `read_result`: -1, ALL_BUT_ONE or the most bytes it gives. `n` counts from
    /// reset().
    MemFile& fail(Kind kind, int n, bool sticky = false, int read_result = 0)
    {
        fault = {kind, n, sticky, read_result};
        return *this;
    }
    /// No fault, all counts 0, `open_handles` apart.
    MemFile& reset()
    {
        std::fill(std::begin(counts), std::end(counts), 0);
        bytes_read = 0;
        return fail(Any, -1);
    }
    int calls(Kind kind = Any) const { return counts[kind]; }

    std::atomic<long long> bytes_read{0};
    std::atomic<int> open_handles{0};
    std::atomic<unsigned long> last_mode{0}; ///< of the last open
    long long reported_size;                 ///< what getsize gives; the size at first

private:
    struct Handle {
        MemFile* file;
        long long pos;
    };
    struct Fault {
        Kind kind;
        int at;
        bool sticky;
        int read_result;
    };

    static Handle& handle(void* fh) { return *static_cast<Handle*>(fh); }

    /// Counts the call; false: it is to fail.
    bool call(Kind kind)
    {
        const int nth = counts[kind].fetch_add(1, std::memory_order_relaxed);
        const int nth_any = counts[Any].fetch_add(1, std::memory_order_relaxed);
        const int n = fault.kind == Any ? nth_any : nth;
        if (fault.at < 0 || (fault.kind != Any && fault.kind != kind))
            return true;
        return fault.sticky ? n < fault.at : n != fault.at;
    }
    static void* open(_ZOCMN_MFAL* mfal, unsigned long mode)
    {
        MemFile* file = static_cast<MemFile*>(mfal->ctx);
        file->last_mode = mode;
        if (!file->call(Open))
            return nullptr;
        ++file->open_handles;
        return new Handle{file, 0};
    }
    static void close(void* fh)
    {
        handle(fh).file->call(Close);
        --handle(fh).file->open_handles;
        delete &handle(fh);
    }
    static int read(void* fh, void* buf, int size)
    {
        long long& pos = handle(fh).pos;
        MemFile& file = *handle(fh).file;
        const bool ok = file.call(Read);
        if (size < 1)
            return 0;
        // The whole room has to be there; but a tag may claim 16 MiB that the file does not have.
        std::memset(buf, 0xA5, static_cast<size_t>(std::min(size, 4096)));
        static_cast<uint8_t*>(buf)[size - 1] = 0xA5;
        const int faulty =
            file.fault.read_result == ALL_BUT_ONE ? size - 1 : file.fault.read_result;
        if (!ok && faulty < 0)
            return -1;
        const long long size_all = static_cast<long long>(file.data.size());
        const long long left =
            pos < 0 ? 0 : size_all - pos; // a position may be the lowest there is
        const long long room = ok ? size : std::min(size, faulty);
        const long long n = std::max(0LL, std::min(room, left));
        if (n > 0)
            std::memcpy(buf, &file.data[static_cast<size_t>(pos)], static_cast<size_t>(n));
        pos += n;
        file.bytes_read += n;
        return static_cast<int>(n);
    }
    static int getpos(void* fh, long long* pos)
    {
        *pos = handle(fh).pos;
        return handle(fh).file->call(GetPos) ? 0 : -1;
    }
    static int setpos(void* fh, long long* pos)
    {
        if (!handle(fh).file->call(SetPos))
            return -1;
        handle(fh).pos = *pos;
        return 0;
    }
    static int skip(void* fh, long long* n)
    {
        if (!handle(fh).file->call(Skip) || *n < 1)
            return -1;
        return __builtin_add_overflow(handle(fh).pos, *n, &handle(fh).pos) ? -1 : 0;
    }
    static int getsize(void* fh, long long* size)
    {
        *size = handle(fh).file->reported_size;
        return handle(fh).file->call(GetSize) ? 0 : -1;
    }

    const Bytes data; // a copy: its heap block has exactly its size
    // The demuxer never calls `write` and `ioctl`: null.
    _ZOCMN_MFAL record = {open, close, read, nullptr, getpos, setpos, skip, getsize, nullptr, this};
    Handle own = {this, 0};
    std::atomic<int> counts[Any + 1] = {};
    Fault fault = {Any, -1, false, 0};
};
