// SPDX-License-Identifier: Apache-2.0
#include "libextractor/zoflv_extractor_source.h"

#include <algorithm>
#include <android/log.h>
#include <climits>
#include <iterator>

namespace android {
namespace {

// What the framework is answered.
static_assert(AMEDIA_ERROR_UNSUPPORTED == -10002, "status of the platform");
static_assert(AMEDIA_ERROR_END_OF_STREAM == -10006, "status of the platform");
static_assert(AMEDIA_ERROR_IO == -10007, "status of the platform");

// Stops the process when a contract of the framework is broken.
void check(bool condition, const char* text, const char* message)
{
    if (!condition)
        __android_log_assert(text, ZOFLV_PLUGIN_LOG_TAG, "%s", message);
}

class Lock {
public:
    explicit Lock(pthread_mutex_t* mutex) : mMutex(mutex) { pthread_mutex_lock(mMutex); }
    ~Lock() { pthread_mutex_unlock(mMutex); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

private:
    pthread_mutex_t* mMutex;
};

// By the platform's mode: previous, next, closest sync, closest.
constexpr int seek_modes[] = {ZOFLV_SEEK_PREVIOUS, ZOFLV_SEEK_NEXT, ZOFLV_SEEK_CLOSEST,
                              ZOFLV_SEEK_PREVIOUS};

int64_t to_ticks(int64_t time_us)
{
    int64_t ticks = 0;
    if (!__builtin_mul_overflow(time_us, ZOFLV_TICKS_PER_US, &ticks))
        return ticks;
    return time_us < 0 ? INT64_MIN : INT64_MAX;
}

} // namespace

ZoFLVSource::ZoFLVSource(AMediaFormat* format, DataSourceHelper*, const sp<ZoFLVDSF>& holder,
                         int index)
    : mFormat(format), mDSF(holder), mBuffer(nullptr), mIndex(index), mType(0), mStream(nullptr),
      mCurrtime(0), mStarted(false)
{
    pthread_mutex_init(&mLock, nullptr);
    const int type = mDSF->mInfo.strm_type[mIndex];
    if (type != ZOFLV_TAG_AUDIO && type != ZOFLV_TAG_VIDEO)
        return;
    mType = type;
    mStream = mDSF->openStream(mIndex);
    if (!mStream)
        mDSF.clear();
}

ZoFLVSource::~ZoFLVSource()
{
    if (mStarted)
        ZoFLVSource::stop();
    if (mStream) {
        mDSF->closeStream(mStream);
        mStream = nullptr;
    }
    mDSF.clear();
    pthread_mutex_destroy(&mLock);
}

media_status_t ZoFLVSource::start()
{
    const Lock lock(&mLock);
    check(!mStarted, "!(!mStarted)", "libextractor/zoflv_extractor:955 CHECK(!mStarted) failed.");
    if (!mDSF.get())
        return AMEDIA_ERROR_UNSUPPORTED;
    int32_t max_size = 0;
    check(AMediaFormat_getInt32(mFormat, AMEDIAFORMAT_KEY_MAX_INPUT_SIZE, &max_size),
          "!(AMediaFormat_getInt32(mFormat, AMEDIAFORMAT_KEY_MAX_INPUT_SIZE, &max_size))",
          "libextractor/zoflv_extractor:963 CHECK(AMediaFormat_getInt32(mFormat, "
          "AMEDIAFORMAT_KEY_MAX_INPUT_SIZE, &max_size)) failed.");
    mBufferGroup->add_buffer(static_cast<size_t>(max_size));
    mStarted = true;
    return AMEDIA_OK;
}

media_status_t ZoFLVSource::stop()
{
    const Lock lock(&mLock);
    check(mStarted, "!(mStarted)", "libextractor/zoflv_extractor:981 CHECK(mStarted) failed.");
    mStarted = false;
    return AMEDIA_OK;
}

media_status_t ZoFLVSource::getFormat(AMediaFormat* format)
{
    const Lock lock(&mLock);
    AMediaFormat_copy(format, mFormat);
    return AMEDIA_OK;
}

media_status_t ZoFLVSource::read(MediaBufferHelper** out, const ReadOptions* options)
{
    const Lock lock(&mLock);
    check(mStarted, "!(mStarted)", "libextractor/zoflv_extractor:997 CHECK(mStarted) failed.");
    *out = nullptr;
    mBuffer = nullptr; // an earlier one is the caller's
    if (mBufferGroup->acquire_buffer(&mBuffer, false, 0) != AMEDIA_OK) {
        mBuffer = nullptr;
        return AMEDIA_ERROR_UNKNOWN;
    }
    check(mBuffer != nullptr, "!(mBuffer != NULL)",
          "libextractor/zoflv_extractor:1079 CHECK(mBuffer != NULL) failed.");
    if (options) {
        const media_status_t status = seek(*options);
        if (status != AMEDIA_OK) {
            releaseBuffer();
            return status;
        }
    }
    return readFrame(out);
}

void ZoFLVSource::releaseBuffer()
{
    mBuffer->release();
    mBuffer = nullptr;
}

// Carries out the seek that the options ask for, if any.
media_status_t ZoFLVSource::seek(const ReadOptions& options)
{
    int64_t time_us = 0;
    ReadOptions::SeekMode mode = ReadOptions::SEEK_PREVIOUS_SYNC;
    if (!options.getSeekTo(&time_us, &mode))
        return AMEDIA_OK;
    if (mDSF->mInfo.seekable != 1 && time_us != 0)
        return AMEDIA_OK;
    const unsigned platform_mode = static_cast<unsigned>(mode);
    if (platform_mode >= std::size(seek_modes)) // a seek to a frame's index
        return AMEDIA_ERROR_UNSUPPORTED;
    const int64_t time = to_ticks(time_us);
    if (mDSF->mInfo.duration < time)
        return AMEDIA_ERROR_END_OF_STREAM;
    int64_t landed = 0; // not used: the next frame's own time tells where the stream is
    const int rc = zoflvds_seek(mStream, &time, &landed, seek_modes[platform_mode]);
    if (rc != ZOFLV_OK) {
        __android_log_print(ANDROID_LOG_INFO, ZOFLV_PLUGIN_LOG_TAG,
                            "ZoFLVSource::read()[%d, %d] zoflvds_seek() failed! zoflv_seek_time: "
                            "%lld, retval=%d",
                            mIndex, mType, static_cast<long long>(time), rc);
        return AMEDIA_ERROR_END_OF_STREAM;
    }
    return AMEDIA_OK;
}

// Reads the next frame into the buffer, labels it and hands it out.
media_status_t ZoFLVSource::readFrame(MediaBufferHelper** out)
{
    int frm_len = 0;
    int64_t time = 0;
    int64_t next_time = 0;
    const int capacity = static_cast<int>(std::min(mBuffer->size(), size_t{INT_MAX}));
    const int rc = zoflvds_get_frm(mStream, static_cast<uint8_t*>(mBuffer->data()), capacity,
                                   &frm_len, &time, &next_time);
    if (rc != ZOFLV_OK) {
        releaseBuffer();
        if (rc == ZOFLV_EOF)
            return AMEDIA_ERROR_END_OF_STREAM;
        __android_log_print(ANDROID_LOG_INFO, ZOFLV_PLUGIN_LOG_TAG,
                            "zoflvds_get_frm [mCurrtime = %lld] ZOFLV_OK != retval : %d",
                            static_cast<long long>(mCurrtime), rc);
        return AMEDIA_ERROR_IO;
    }
    mBuffer->set_range(0, static_cast<size_t>(frm_len));
    mCurrtime = time / ZOFLV_TICKS_PER_US;
    AMediaFormat* meta = mBuffer->meta_data();
    AMediaFormat_clear(meta);
    AMediaFormat_setInt64(meta, AMEDIAFORMAT_KEY_TIME_US, mCurrtime);
    if (next_time > time)
        AMediaFormat_setInt64(meta, AMEDIAFORMAT_KEY_DURATION,
                              (next_time - time) / ZOFLV_TICKS_PER_US);
    *out = mBuffer;
    return AMEDIA_OK;
}

} // namespace android
