// SPDX-License-Identifier: Apache-2.0
#include "libextractor/mfal/zocmn_mfal_android_q.h"

#include "zoflv/dmx/zoflv_err.h"

#include <android/log.h>
#include <cstdint>
#include <new>

namespace {

using android::DataSourceHelper;

constexpr char log_tag[] = "ZoFLVExtractor";
constexpr char source_name[] = "libextractor/mfal/zocmn_mfal_android_q";

struct Context {
    DataSourceHelper* source; // not owned
};

struct FileHandle {
    DataSourceHelper* src;
    int64_t pos;
};

// False, with the position as it was, where the next one does not fit.
bool advance(FileHandle* fp, int64_t bytes)
{
    int64_t pos = 0;
    if (__builtin_add_overflow(fp->pos, bytes, &pos))
        return false;
    fp->pos = pos;
    return true;
}

// Logs a missing argument, whose check has the number `check`, and answers with `code`.
#define MISSING(argument, check)                                                                   \
    (__android_log_print(ANDROID_LOG_ERROR, log_tag, "[%s:%d] assert failed! (" argument ")\n",    \
                         source_name, check),                                                      \
     -1)

void* mfal_open(_ZOCMN_MFAL* mfal, unsigned long) // the mode makes no difference here
{
    if (!mfal) {
        MISSING("mfal", 102);
        return nullptr;
    }
    FileHandle* fp = new (std::nothrow) FileHandle{nullptr, 0};
    if (!fp)
        return nullptr;
    const Context* context = static_cast<const Context*>(mfal->ctx);
    if (!context || !context->source) {
        __android_log_print(ANDROID_LOG_ERROR, log_tag, "not supported");
        delete fp;
        return nullptr;
    }
    fp->src = context->source;
    return fp;
}

void mfal_close(void* fh)
{
    if (!fh) {
        MISSING("fp", 134);
        return;
    }
    delete static_cast<FileHandle*>(fh);
}

int mfal_read(void* fh, void* buf, int size)
{
    if (size < 1)
        return 0;
    if (!buf)
        return MISSING("buf", 151);
    if (!fh)
        return MISSING("fp", 152);
    FileHandle* fp = static_cast<FileHandle*>(fh);
    const auto count = fp->src->readAt(fp->pos, buf, static_cast<size_t>(size));
    if (count <= 0)
        return 0;
    const int got = count < size ? static_cast<int>(count) : size; // no more than was asked for
    return advance(fp, got) ? got : -1;
}

int mfal_write(void* fh, void*, int)
{
    return fh ? 0 : MISSING("fp", 165);
}

int mfal_getpos(void* fh, long long* pos)
{
    if (!pos)
        return MISSING("p", 174);
    if (!fh)
        return MISSING("fp", 175);
    *pos = static_cast<FileHandle*>(fh)->pos;
    return 0;
}

int mfal_setpos(void* fh, long long* pos)
{
    if (!pos)
        return MISSING("p", 188);
    if (!fh)
        return MISSING("fp", 189);
    static_cast<FileHandle*>(fh)->pos = *pos;
    return 0;
}

int mfal_skip(void* fh, long long* n)
{
    if (!n)
        return MISSING("fsize", 203);
    if (!fh)
        return MISSING("fp", 204);
    if (*n < 1)
        return -1;
    FileHandle* fp = static_cast<FileHandle*>(fh);
    return advance(fp, *n) ? 0 : -1;
}

int mfal_getsize(void* fh, long long* size)
{
    if (!size)
        return MISSING("fsize", 224);
    if (!fh)
        return MISSING("fp", 225);
    off64_t length = 0; // what a source that cannot tell leaves
    static_cast<FileHandle*>(fh)->src->getSize(&length);
    *size = length;
    return 0;
}

int mfal_ioctl(void* fh, int cmd, void* arg)
{
    if (!fh)
        return MISSING("fp", 239);
    if (!arg)
        return MISSING("arg", 240);
    return cmd == 1 ? 0 : -1;
}

#undef MISSING

} // namespace

int zocmn_mfal_init(_ZOCMN_MFAL* mfal, DataSourceHelper* source)
{
    *mfal = _ZOCMN_MFAL{};
    Context* context = new (std::nothrow) Context{source};
    if (!context)
        return ZOFLV_ERR_MALLOC;
    *mfal = {mfal_open,   mfal_close, mfal_read,    mfal_write, mfal_getpos,
             mfal_setpos, mfal_skip,  mfal_getsize, mfal_ioctl, context};
    return ZOFLV_OK;
}

void zocmn_mfal_deinit(_ZOCMN_MFAL* mfal)
{
    if (!mfal)
        return;
    delete static_cast<Context*>(mfal->ctx);
    *mfal = _ZOCMN_MFAL{};
}
