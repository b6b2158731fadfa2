// SPDX-License-Identifier: Apache-2.0
/// @file
/// File access: the record of callbacks through which the demuxer reads every byte.
#pragma once

#include <cstdint>

/// The file-access record, a plain value that the demuxer copies into its handles. The copies share
/// `ctx`; whoever built the record releases the context after every handle is gone.
///
/// File handles are opaque. Each `open` yields one with a position of its own, used by one caller
/// at a time; handles on different threads must not disturb each other. Positions and sizes are
/// byte offsets from the start of the source, passed by pointer.
struct _ZOCMN_MFAL {
    /// Returns a new file handle at position 0, or null.
    void* (*open)(_ZOCMN_MFAL* mfal, unsigned long mode);
    /// Frees a handle.
    void (*close)(void* fh);
    /// Returns the number of bytes read at the position, 0 to `size`, which it advances by, or -1
    /// for a missing argument. A short count means the end of the data or an error.
    int (*read)(void* fh, void* buf, int size);
    /// Writes nothing; the demuxer never calls it.
    int (*write)(void* fh, void* buf, int size);
    /// Stores the position. 0 or -1.
    int (*getpos)(void* fh, long long* pos);
    /// Sets the position, which may lie past the end. 0 or -1.
    int (*setpos)(void* fh, long long* pos);
    /// Moves the position forward by `*n` >= 1 bytes, past the end too. 0 or -1.
    int (*skip)(void* fh, long long* n);
    /// Stores the length of the source. 0 or -1.
    int (*getsize)(void* fh, long long* size);
    /// Command 1 is accepted, no other; the demuxer never calls it.
    int (*ioctl)(void* fh, int cmd, void* arg);
    /// The adapter's context: holds the reference to the byte source.
    void* ctx;
};

// The callbacks take `long long`, the demuxer keeps int64_t: on many hosts two distinct types.

inline int zoflv_file_getpos(const _ZOCMN_MFAL* mfal, void* fh, int64_t* pos)
{
    long long value = 0;
    const int rc = mfal->getpos(fh, &value);
    if (rc == 0)
        *pos = value;
    return rc;
}

inline int zoflv_file_setpos(const _ZOCMN_MFAL* mfal, void* fh, int64_t pos)
{
    long long value = pos;
    return mfal->setpos(fh, &value);
}

inline int zoflv_file_skip(const _ZOCMN_MFAL* mfal, void* fh, int64_t n)
{
    long long value = n;
    return mfal->skip(fh, &value);
}

inline int zoflv_file_getsize(const _ZOCMN_MFAL* mfal, void* fh, int64_t* size)
{
    long long value = 0;
    const int rc = mfal->getsize(fh, &value);
    if (rc == 0)
        *size = value;
    return rc;
}

/// Whether all `size` bytes were read.
inline bool zoflv_file_read(const _ZOCMN_MFAL* mfal, void* fh, void* buf, int size)
{
    return mfal->read(fh, buf, size) == size;
}
