// SPDX-License-Identifier: Apache-2.0
#include "tools/elementary.h"

#include "tools/output.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <vector>
#include <zodevice/zo_media_formats.h>

namespace {

using zoflv_host::Format;

/// One frame after the other, with nothing added but perhaps something in front.
class PlainWriter : public ElementaryWriter {
public:
    PlainWriter(const std::string& target, bool force, const std::vector<uint8_t>& front)
        : m_file(target, force)
    {
        m_file.write(front.data(), front.size());
    }
    void frame(const uint8_t* data, size_t size, int64_t) override { m_file.write(data, size); }
    void finish() override { m_file.publish(); }

private:
    OutputFile m_file;
};

/// Frames without borders of their own, and a table of them.
class RawWriter : public ElementaryWriter {
public:
    RawWriter(const std::string& target, bool force) : m_file(target, force)
    {
        if (!m_file.seekable())
            return; // nothing is beside a pipe
        m_table.emplace(target + ".csv", force);
        m_table->write("offset,size,time_us\n");
    }
    void frame(const uint8_t* data, size_t size, int64_t time_us) override
    {
        m_file.write(data, size);
        if (m_table)
            m_table->write(textf("%llu,%zu,%lld\n", static_cast<unsigned long long>(m_offset), size,
                                 static_cast<long long>(time_us)));
        m_offset += size;
    }
    void finish() override
    {
        m_file.finish();
        if (m_table)
            m_table->publish();
        m_file.publish(); // last: it is not there without its table
    }

private:
    OutputFile m_file;
    std::optional<OutputFile> m_table;
    uint64_t m_offset = 0;
};

/// AAC with the ADTS header of ISO/IEC 13818-7 in front of each frame.
class AdtsWriter : public ElementaryWriter {
public:
    /// @param config  an AudioSpecificConfig
    AdtsWriter(const std::string& target, bool force, const std::vector<uint8_t>& config)
        : m_file(target, force)
    {
        const unsigned bits = unsigned{config[0]} << 8U | config[1];
        m_profile = (bits >> 11U) - 1; // the audio object type less one: 2 bits are for it
        m_rate = bits >> 7U & 0x0F;
        m_channels = bits >> 3U & 0x0F;
        if (m_channels == 8) // the plugin publishes the number of channels
            m_channels = 7;
        if (m_profile > 3 || m_channels > 7)
            throw Failure(EXIT_BAD_FILE, "this AAC configuration does not fit into ADTS (--raw "
                                         "extracts the frames without it)");
    }
    void frame(const uint8_t* data, size_t size, int64_t) override
    {
        constexpr size_t header_size = 7, size_limit = 1U << 13U; // frame_length has 13 bits
        if (size == 0)
            return; // an ADTS frame holds one access unit
        if (size >= size_limit - header_size)
            throw Failure(EXIT_BAD_FILE, textf("a frame of %zu bytes does not fit into ADTS (--raw "
                                               "extracts the frames without it)",
                                               size));
        const auto length = static_cast<unsigned>(size + header_size);
        const std::array<uint8_t, header_size> header = {
            0xFF,
            0xF1, // MPEG-4, no CRC
            static_cast<uint8_t>(m_profile << 6U | m_rate << 2U | m_channels >> 2U),
            static_cast<uint8_t>((m_channels & 3U) << 6U | length >> 11U),
            static_cast<uint8_t>(length >> 3U),
            static_cast<uint8_t>((length & 7U) << 5U | 0x1F), // buffer fullness: variable rate
            0xFC,                                             // one frame
        };
        m_file.write(header.data(), header.size());
        m_file.write(data, size);
    }
    void finish() override { m_file.publish(); }

private:
    OutputFile m_file;
    unsigned m_profile, m_rate, m_channels;
};

/// What a WAV header says.
struct WavFormat {
    uint16_t tag; ///< 1 PCM, 6 A-law, 7 mu-law
    uint16_t channels;
    uint32_t rate; ///< Hz
    uint16_t bits; ///< per sample
};

class WavWriter : public ElementaryWriter {
public:
    WavWriter(const std::string& target, bool force, const WavFormat& format)
        : m_file(target, force), m_format(format)
    {
        write_header(unknown);
    }
    void frame(const uint8_t* data, size_t size, int64_t) override
    {
        m_file.write(data, size);
        m_size += size;
    }
    void finish() override
    {
        if (m_size % 2 != 0)
            m_file.write("\0", 1); // chunks have even sizes; the pad is not counted
        if (m_file.seekable() && m_size < unknown - header_size)
            write_header(static_cast<uint32_t>(m_size));
        m_file.publish();
    }

private:
    static constexpr uint32_t header_size = 58;
    static constexpr uint32_t unknown = UINT32_MAX; ///< readers go on to the end then

    void write_header(uint32_t data_size)
    {
        const uint32_t block = m_format.channels * m_format.bits / 8U;
        std::string h;
        const auto number = [&h](uint32_t value, int bytes) {
            for (; bytes > 0; --bytes, value >>= 8U)
                h += static_cast<char>(value & 0xFF);
        };
        h += "RIFF";
        number(data_size == unknown ? unknown : header_size - 8 + data_size + data_size % 2, 4);
        h += "WAVEfmt ";
        number(18, 4);
        number(m_format.tag, 2);
        number(m_format.channels, 2);
        number(m_format.rate, 4);
        number(m_format.rate * block, 4);
        number(block, 2);
        number(m_format.bits, 2);
        number(0, 2); // no extension
        h += "fact";  // required but for PCM
        number(4, 4);
        number(data_size == unknown || block == 0 ? unknown : data_size / block, 4);
        h += "data";
        number(data_size, 4);
        if (data_size == unknown)
            m_file.write(h);
        else
            m_file.rewrite(0, h.data(), h.size());
    }

    OutputFile m_file;
    const WavFormat m_format;
    uint64_t m_size = 0;
};

/// The four characters of the track's codec code.
std::string code_text(const Format& format)
{
    const int32_t code = format.int32(android::AMEDIAFORMAT_KEY_FOURCC).value_or(0);
    char text[sizeof code];
    std::memcpy(text, &code, sizeof code); // in memory order
    return {text, sizeof text};
}

/// The plugin publishes SoundRate in whole thousands; a sample sounds at the exact rate.
uint32_t exact_rate(int32_t published)
{
    switch (published) {
    case 5000:
        return 5512;
    case 11000:
        return 11025;
    case 22000:
        return 22050;
    case 44000:
        return 44100;
    default:
        return static_cast<uint32_t>(published);
    }
}

/// Nothing for a codec that WAV is not used for.
std::optional<WavFormat> wav_format(const Format& format)
{
    const auto channels = static_cast<uint16_t>(
        std::max(format.int32(AMEDIAFORMAT_KEY_CHANNEL_COUNT).value_or(0), 1));
    const std::string code = code_text(format);
    constexpr uint32_t g711_rate = 8000; // the one rate of G.711, which SoundRate has no code for
    if (code == "alaw")
        return WavFormat{6, channels, g711_rate, 8};
    if (code == "mlaw")
        return WavFormat{7, channels, g711_rate, 8};
    if (code != "lpcm" && code != "llpc")
        return std::nullopt;
    const auto bits =
        static_cast<uint16_t>(format.int32(AMEDIAFORMAT_KEY_BITS_PER_SAMPLE).value_or(0));
    const int32_t rate = format.int32(AMEDIAFORMAT_KEY_SAMPLE_RATE).value_or(0);
    return WavFormat{1, channels, exact_rate(rate), bits};
}

/// What an extracted file cannot do without. Throws Failure when the plugin does not publish it.
std::vector<uint8_t> need_codec_data(const Format& format, size_t least, const char* name)
{
    auto data = format.buffer(AMEDIAFORMAT_KEY_CSD_0).value_or(std::vector<uint8_t>());
    if (data.size() < least)
        throw Failure(EXIT_BAD_FILE, std::string("a decoder would get no ") + name +
                                         " (--raw extracts the frames without)");
    return data;
}

} // namespace

std::unique_ptr<ElementaryWriter> make_writer(const Format& format, const std::string& target,
                                              bool raw, bool force)
{
    const std::string mime = format.string(AMEDIAFORMAT_KEY_MIME).value_or(std::string());
    if (raw)
        return std::make_unique<RawWriter>(target, force);
    if (mime == "video/avc")
        return std::make_unique<PlainWriter>(target, force,
                                             need_codec_data(format, 1, "parameter sets"));
    if (mime == android::MEDIA_MIMETYPE_AUDIO_AAC)
        return std::make_unique<AdtsWriter>(target, force,
                                            need_codec_data(format, 2, "AAC configuration"));
    if (mime == android::MEDIA_MIMETYPE_AUDIO_MPEG)
        return std::make_unique<PlainWriter>(target, force, std::vector<uint8_t>());
    if (const auto wav = wav_format(format))
        return std::make_unique<WavWriter>(target, force, *wav);
    return std::make_unique<RawWriter>(target, force);
}
