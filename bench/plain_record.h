// SPDX-License-Identifier: Apache-2.0
/// @file
/// A file-access record that makes a system call of each read, as the plain bare walk does.
#pragma once

#include "bench/bare_walk.h"
#include "zoflv/dmx/zocmn_mfal.h"

/// @param source  outlives the record and its handles
inline _ZOCMN_MFAL plain_record(PlainReads* source)
{
    struct Handle {
        int fd;
        long long pos;
    };
    _ZOCMN_MFAL mfal = {};
    mfal.ctx = source;
    mfal.open = [](_ZOCMN_MFAL* m, unsigned long) -> void* {
        return new Handle{static_cast<PlainReads*>(m->ctx)->file.fd, 0};
    };
    mfal.close = [](void* fh) { delete static_cast<Handle*>(fh); };
    mfal.read = [](void* fh, void* buf, int size) {
        auto* const handle = static_cast<Handle*>(fh);
        const ssize_t n = ::pread(handle->fd, buf, static_cast<size_t>(size), handle->pos);
        handle->pos += n > 0 ? n : 0;
        return static_cast<int>(n);
    };
    mfal.getpos = [](void* fh, long long* pos) {
        *pos = static_cast<Handle*>(fh)->pos;
        return 0;
    };
    mfal.setpos = [](void* fh, long long* pos) {
        static_cast<Handle*>(fh)->pos = *pos;
        return 0;
    };
    mfal.skip = [](void* fh, long long* n) {
        static_cast<Handle*>(fh)->pos += *n;
        return 0;
    };
    mfal.getsize = [](void* fh, long long* size) {
        struct stat info;
        const int rc = ::fstat(static_cast<Handle*>(fh)->fd, &info);
        *size = rc == 0 ? info.st_size : 0;
        return rc;
    };
    return mfal;
}
