// SPDX-License-Identifier: Apache-2.0
#include "inspect/demuxer_query.h"

#include "zoflv/dmx/zocmn_mfal.h"
#include "zoflv/dmx/zoflvd.h"
#include "zoflv/dmx/zoflvd_metadata.h"

#include <zoflv_host/log.h>

#include <algorithm>
#include <cstring>
#include <memory>

namespace zoflv_inspect {

namespace {

// A small file: a header, and one tag whose body stays where it is.
class OneTagFile {
public:
    static constexpr int64_t TAG_OFFSET = 13;

    OneTagFile(uint8_t type, const View& body) : m_body(body)
    {
        const auto size = static_cast<uint32_t>(body.size);
        const uint8_t flags = type == TAG_AUDIO ? 4 : 1;
        const uint8_t head[] = {'F',
                                'L',
                                'V',
                                1,
                                flags,
                                0,
                                0,
                                0,
                                9,
                                0,
                                0,
                                0,
                                0, // PreviousTagSize0
                                type,
                                byte(size, 16),
                                byte(size, 8),
                                byte(size, 0)};
        std::memcpy(m_head, head, sizeof head);
        const uint32_t previous = TAG_HEADER_SIZE + size;
        for (int i = 0; i < 4; ++i)
            m_tail[i] = byte(previous, 24 - 8 * i);
    }

    _ZOCMN_MFAL record()
    {
        _ZOCMN_MFAL record = {};
        record.open = [](_ZOCMN_MFAL* mfal, unsigned long) -> void* {
            return new (std::nothrow) Handle{static_cast<OneTagFile*>(mfal->ctx), 0};
        };
        record.close = [](void* fh) { delete static_cast<Handle*>(fh); };
        record.read = [](void* fh, void* buffer, int size) {
            auto& handle = *static_cast<Handle*>(fh);
            return handle.file->read(&handle.at, static_cast<uint8_t*>(buffer), size);
        };
        record.getpos = [](void* fh, long long* at) {
            *at = static_cast<Handle*>(fh)->at;
            return 0;
        };
        record.setpos = [](void* fh, long long* at) {
            static_cast<Handle*>(fh)->at = std::max(*at, 0LL);
            return 0;
        };
        record.skip = [](void* fh, long long* count) {
            static_cast<Handle*>(fh)->at += std::clamp(*count, 0LL, 1LL << 32);
            return 0;
        };
        record.getsize = [](void* fh, long long* size) {
            *size = static_cast<Handle*>(fh)->file->size();
            return 0;
        };
        record.ctx = this;
        return record;
    }

private:
    struct Handle {
        OneTagFile* file;
        long long at;
    };
    struct Part {
        const uint8_t* data;
        size_t size;
    };

    static uint8_t byte(uint32_t value, int shift) { return static_cast<uint8_t>(value >> shift); }

    long long size() const
    {
        return static_cast<long long>(sizeof m_head + m_body.size + sizeof m_tail);
    }
    int read(long long* at, uint8_t* buffer, int size) const
    {
        const Part parts[] = {
            {m_head, sizeof m_head}, {m_body.data, m_body.size}, {m_tail, sizeof m_tail}};
        auto left = static_cast<size_t>(std::max(size, 0));
        long long start = 0; // of the part
        for (const Part& part : parts) {
            const long long from = *at - start;
            start += static_cast<long long>(part.size);
            if (left == 0 || *at >= start)
                continue;
            const size_t count = std::min(left, static_cast<size_t>(start - *at));
            std::memcpy(buffer, part.data + from, count);
            buffer += count;
            left -= count;
            *at += static_cast<long long>(count);
        }
        return size - static_cast<int>(left);
    }

    const View m_body;
    uint8_t m_head[TAG_OFFSET + TAG_HEADER_SIZE] = {};
    uint8_t m_tail[4] = {};
};

void drop(int, const std::string&, const std::string&) {}

} // namespace

ReadMetadata ask_metadata(const View& body)
{
    const zoflv_host::ScopedLogSink silence(drop);
    OneTagFile file(TAG_SCRIPT, body);
    _ZOCMN_MFAL record = file.record();
    const std::unique_ptr<void, void (*)(void*)> handle(record.open(&record, 0), record.close);
    ReadMetadata out;
    ZOFLVD_METADATA metadata = {};
    int64_t next = 0;
    const int64_t first = OneTagFile::TAG_OFFSET;
    if (handle && zoflvd_metadata_init(&record, handle.get(), &first, &metadata, &next) == 0) {
        out.duration = metadata.duration;
        out.width = metadata.width;
        out.height = metadata.height;
        out.times.assign(metadata.times, metadata.times + metadata.times_cnt);
        out.filepositions.assign(metadata.filepositions,
                                 metadata.filepositions + metadata.filepositions_cnt);
    }
    zoflvd_metadata_deinit(&metadata);
    return out;
}

ReadStream ask_stream(uint8_t type, const View& body)
{
    const zoflv_host::ScopedLogSink silence(drop);
    OneTagFile file(type, body);
    _ZOCMN_MFAL record = file.record();
    ZOFLVD_INFO info = {};
    const int64_t duration = 0;
    const std::unique_ptr<ZOFLVD, void (*)(ZOFLVD*)> demuxer(
        zoflvd_create(&record, &duration, &info, nullptr), zoflvd_delete);
    ReadStream out;
    if (!demuxer)
        return out;
    out.opened = true;
    int size = 0;
    if (zoflvd_get_format(demuxer.get(), 0, nullptr, &size) == 0)
        out.codec_data_size = size;
    ZOFLVD_INFO_VID video = {};
    ZOFLVD_INFO_AUD audio = {};
    if (type == TAG_VIDEO && zoflvd_get_info_vid(demuxer.get(), 0, &video) == 0) {
        out.width = video.width;
        out.height = video.height;
    } else if (type == TAG_AUDIO && zoflvd_get_info_aud(demuxer.get(), 0, &audio) == 0) {
        out.sample_rate = audio.sample_rate;
        out.channels = audio.channels;
    }
    return out;
}

} // namespace zoflv_inspect
