// SPDX-License-Identifier: Apache-2.0
#include "tools/commands.h"
#include "tools/file.h"

#include <zlib.h>

#include <algorithm>
#include <memory>

namespace {

/// The error that an AVC tag without payload leaves. It ends a stream, but is no damage where it is
/// the last: encoders write their end-of-sequence tag so.
constexpr char empty_avc_tag[] = "assert!, [zoflv/dmx/zoflvd: 982]";

struct Frame {
    int length;
    int64_t time, next_time; ///< 100-ns units
};

/// Reads one stream, frame by frame.
class FrameReader {
public:
    FrameReader(const FlvFile& file, int stream) : m_log(file.log())
    {
        m_log.reset();
        int rc = ZOFLV_ERR_FAIL;
        m_stream.reset(zoflvds_open(file.handle(), stream, &rc));
        if (!m_stream)
            throw Failure(EXIT_BAD_FILE,
                          textf("stream %d cannot be opened: ", stream) + reason(rc, m_log));
    }

    /// The next frame's bytes are then in data(). Returns the demuxer's code.
    int read(Frame* frame)
    {
        int rc = zoflvds_get_frm(m_stream.get(), nullptr, 0, &frame->length, nullptr, nullptr);
        if (rc != ZOFLV_OK)
            return rc;
        m_buffer.resize(std::max({m_buffer.size(), static_cast<size_t>(frame->length), size_t{1}}));
        // Errors are kept from here to the end of the next call's query: what the look ahead at the
        // end of this read runs into shows as the end of the stream only then.
        m_log.reset();
        return zoflvds_get_frm(m_stream.get(), m_buffer.data(), static_cast<int>(m_buffer.size()),
                               &frame->length, &frame->time, &frame->next_time);
    }

    const uint8_t* data() const { return m_buffer.data(); }

    /// Why the read that gave `rc` ended the stream; empty at its ordinary end.
    std::string trouble(int rc)
    {
        bool passed = false;
        while (rc == ZOFLV_EOF && m_log.first_error() == empty_avc_tag) {
            passed = true;
            m_log.reset();
            int length = 0;
            rc = zoflvds_get_frm(m_stream.get(), nullptr, 0, &length, nullptr, nullptr);
        }
        if (rc == ZOFLV_EOF && m_log.first_error().empty())
            return {};
        if (passed && rc == ZOFLV_OK)
            return "an AVC tag without payload, with more behind it";
        return rc == ZOFLV_EOF ? m_log.first_error() : reason(rc, m_log);
    }

private:
    struct Close {
        void operator()(ZOFLVDS* s) const { zoflvds_close(s); }
    };
    LogTap& m_log;
    std::unique_ptr<ZOFLVDS, Close> m_stream;
    std::vector<uint8_t> m_buffer;
};

void print_frame(int stream, int64_t index, const Frame& frame, uint32_t crc, bool json)
{
    const std::string crc_text = textf("%08x", crc);
    if (json)
        put_line({{"stream", stream},
                  {"index", index},
                  {"time", frame.time},
                  {"next_time", frame.next_time},
                  {"length", frame.length},
                  {"crc32", crc_text}});
    else
        put(textf("%6d %8lld %16s %16s %10d  %s\n", stream, static_cast<long long>(index),
                  seconds(frame.time).c_str(), seconds(frame.next_time).c_str(), frame.length,
                  crc_text.c_str()));
}

/// Prints the frames of one stream. Throws Failure where reading ends before the stream does.
void list_frames(const FlvFile& file, int stream, bool json)
{
    FrameReader reader(file, stream);
    int64_t count = 0;
    Frame frame{};
    int rc = ZOFLV_OK;
    for (; (rc = reader.read(&frame)) == ZOFLV_OK; ++count) {
        const uLong crc = crc32(0, reader.data(), static_cast<uInt>(frame.length));
        print_frame(stream, count, frame, static_cast<uint32_t>(crc), json);
    }
    const std::string trouble = reader.trouble(rc);
    if (!trouble.empty())
        throw Failure(EXIT_BAD_FILE, textf("stream %d: reading ended behind %lld frames: %s",
                                           stream, static_cast<long long>(count), trouble.c_str()));
}

} // namespace

int run_frames(const FramesOptions& options, LogTap& log)
{
    int worst = EXIT_FINE;
    const FlvFile file(options.file, log);
    const int count = file.info().strm_cnt;
    if (options.stream >= count)
        throw Failure(EXIT_USAGE, textf("no stream %d, the file has %d", options.stream, count));
    if (!options.json)
        put(textf("%6s %8s %16s %16s %10s  %s\n", "stream", "index", "time (s)", "next (s)",
                  "length", "crc32"));
    for (int i = 0; i < count; ++i) {
        if (options.stream >= 0 && options.stream != i)
            continue;
        try {
            list_frames(file, i, options.json);
        } catch (const OutputFailure&) {
            throw;
        } catch (const Failure& failure) { // the other stream may be sound
            complain(options.file, failure.what());
            worst = std::max<int>(worst, failure.code());
        }
    }
    return worst;
}
