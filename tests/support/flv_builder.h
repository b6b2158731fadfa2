// SPDX-License-Identifier: Apache-2.0
/// @file
/// Builds FLV files, AMF0 values and codec headers byte by byte, well-formed or broken.
#pragma once

#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

using Bytes = std::vector<uint8_t>;

// The demuxer's times, in 100 ns.
constexpr int64_t MS = 10000;
constexpr int64_t SEC = 1000 * MS;

/// Numbers to be compared at once: a difference shows them all. None may depend on another's call.
template <class... T>
std::vector<int64_t> values(const T&... numbers)
{
    return {static_cast<int64_t>(numbers)...};
}

/// "17 00 FF"; blanks are skipped.
inline Bytes hex(std::string_view digits)
{
    std::string packed;
    for (const char c : digits)
        if (std::isxdigit(static_cast<unsigned char>(c)))
            packed += c;
    Bytes out;
    for (size_t i = 0; i + 1 < packed.size(); i += 2)
        out.push_back(static_cast<uint8_t>(std::stoul(packed.substr(i, 2), nullptr, 16)));
    return out;
}

/// The value's `bytes` low bytes, most significant first.
inline Bytes be(uint64_t value, int bytes)
{
    Bytes out;
    for (int i = bytes - 1; i >= 0; --i)
        out.push_back(static_cast<uint8_t>(value >> (8 * i)));
    return out;
}

inline Bytes ascii(std::string_view text)
{
    return {text.begin(), text.end()};
}

inline Bytes cat(const std::vector<Bytes>& parts)
{
    Bytes out;
    for (const Bytes& part : parts)
        out.insert(out.end(), part.begin(), part.end());
    return out;
}

/// `first`, `first` + 1, ...
inline Bytes fill(size_t count, uint8_t first = 0)
{
    Bytes out(count);
    for (uint8_t& byte : out)
        byte = first++;
    return out;
}

/// The first `length` bytes.
inline Bytes cut(const Bytes& bytes, size_t length)
{
    return {bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(length)};
}

/// Bits, most significant first; what is missing of the last byte is 0.
class Bits {
public:
    Bits& u(int n, uint64_t value)
    {
        for (int i = n - 1; i >= 0; --i, ++bits) {
            if (bits % 8 == 0)
                out.push_back(0);
            const uint64_t bit = i < 64 ? value >> i & 1 : 0;
            out.back() = static_cast<uint8_t>(out.back() | bit << (7 - bits % 8));
        }
        return *this;
    }
    Bits& ue(uint64_t value) ///< unsigned Exp-Golomb
    {
        int length = 0;
        while ((value + 1) >> length > 1)
            ++length;
        return u(length, 0).u(length + 1, value + 1);
    }
    /// signed Exp-Golomb
    Bits& se(int64_t v) { return ue(static_cast<uint64_t>(v > 0 ? 2 * v - 1 : -2 * v)); }
    Bits& raw(const Bytes& bytes)
    {
        for (const uint8_t byte : bytes)
            u(8, byte);
        return *this;
    }
    /// the stop bit and zeros up to the byte boundary
    Bits& trailing() { return u(1, 1).u((8 - bits % 8) % 8, 0); }
    const Bytes& bytes() const { return out; }
    int size() const { return bits; }

private:
    Bytes out;
    int bits = 0;
};

// AMF0. A value begins with its type marker, a property with its name.

inline Bytes amf_num(double value)
{
    uint64_t image = 0;
    std::memcpy(&image, &value, sizeof image);
    return cat({{0}, be(image, 8)});
}

inline Bytes amf_bool(bool value)
{
    return {1, value};
}

inline Bytes amf_str(std::string_view text)
{
    return cat({{2}, be(text.size(), 2), ascii(text)});
}

inline Bytes amf_prop(std::string_view name, const Bytes& value)
{
    return cat({be(name.size(), 2), ascii(name), value});
}

inline Bytes amf_object(const std::vector<Bytes>& props)
{
    return cat({{3}, cat(props), hex("00 00 09")});
}

inline Bytes amf_ecma(uint32_t count, const std::vector<Bytes>& props)
{
    return cat({{8}, be(count, 4), cat(props), hex("00 00 09")});
}

/// A strict array.
inline Bytes amf_array(const std::vector<double>& numbers)
{
    std::vector<Bytes> parts = {{10}, be(numbers.size(), 4)};
    for (const double number : numbers)
        parts.push_back(amf_num(number));
    return cat(parts);
}

/// The property "keyframes".
inline Bytes amf_keyframes(const std::vector<double>& times, const std::vector<double>& positions)
{
    return amf_prop("keyframes", amf_object({amf_prop("filepositions", amf_array(positions)),
                                             amf_prop("times", amf_array(times))}));
}

/// The body of an onMetaData tag.
inline Bytes on_meta_data(const std::vector<Bytes>& props)
{
    return cat({amf_str("onMetaData"), amf_ecma(static_cast<uint32_t>(props.size()), props)});
}

// AVC. NAL units are given without length or start code, the tags are tag bodies.

/// A Baseline sequence parameter set; sizes in macroblocks of 16 pixels.
inline Bytes avc_sps(uint32_t width_mbs, uint32_t height_mbs)
{
    Bits sps;
    sps.raw(hex("67 42 00 1E")).ue(0).ue(0).ue(2).ue(1).u(1, 0); // 2: pic_order_cnt_type
    sps.ue(width_mbs - 1).ue(height_mbs - 1).u(4, 0xC);          // frame_mbs_only, direct_8x8
    return sps.trailing().bytes();
}

inline Bytes avc_units(const std::vector<Bytes>& units, int len_size)
{
    std::vector<Bytes> parts;
    for (const Bytes& unit : units)
        parts.push_back(cat({be(unit.size(), len_size), unit}));
    return cat(parts);
}

inline Bytes avc_record(const std::vector<Bytes>& sps, const std::vector<Bytes>& pps,
                        int len_size = 4)
{
    return cat({hex("01 42 00 1E"), be(0xFBU + static_cast<unsigned>(len_size), 1),
                be(0xE0 | sps.size(), 1), avc_units(sps, 2), be(pps.size(), 1), avc_units(pps, 2)});
}

inline Bytes avc_config_tag(const Bytes& record)
{
    return cat({hex("17 00 00 00 00"), record});
}

inline Bytes avc_tag(const std::vector<Bytes>& units, bool key = true, int len_size = 4)
{
    return cat({hex(key ? "17 01 00 00 00" : "27 01 00 00 00"), avc_units(units, len_size)});
}

// Audio tag bodies.

/// AAC LC, 44.1 kHz, stereo.
inline Bytes aac_config_tag(const Bytes& config = hex("12 10"))
{
    return cat({hex("AF 00"), config});
}

inline Bytes aac_tag(const Bytes& payload)
{
    return cat({hex("AF 01"), payload});
}

/// A frame header of 128 kbit/s, 44.1 kHz, stereo, and `payload`.
inline Bytes mp3_tag(const Bytes& payload = {})
{
    return cat({hex("2F FF FB 90 04"), payload});
}

class FlvBuilder {
public:
    struct Tag {
        uint8_t type;
        uint32_t time_ms;
        size_t pos;  ///< of the TagType byte
        size_t size; ///< of the body
        bool key;    ///< a video frame of frame type 1, AVC configurations excluded
    };

    FlvBuilder& header(uint8_t flags = 5, uint32_t data_offset = 9, uint8_t version = 1)
    {
        return raw(cat({ascii("FLV"), {version, flags}, be(data_offset, 4), be(0, 4)}));
    }
    FlvBuilder& tag(uint8_t type, uint32_t time_ms, const Bytes& body, uint32_t stream_id = 0)
    {
        const bool config = body.size() > 1 && (body[0] & 15) == 7 && body[1] == 0;
        const bool key = type == 9 && !body.empty() && body[0] >> 4 == 1 && !config;
        list.push_back({type, time_ms, out.size(), body.size(), key});
        return raw(cat({{type},
                        be(body.size(), 3),
                        be(time_ms, 3),
                        be(time_ms >> 24, 1),
                        be(stream_id, 3),
                        body,
                        be(11 + body.size(), 4)}));
    }
    FlvBuilder& raw(const Bytes& bytes)
    {
        out.insert(out.end(), bytes.begin(), bytes.end());
        return *this;
    }

    /// Puts an onMetaData tag after the 13 bytes of the file header, with a keyframe index that
    /// lists every key tag where it then stands. Called last.
    FlvBuilder& indexed(std::vector<Bytes> props = {})
    {
        props.emplace_back();
        const auto meta = [&](size_t shift) {
            std::vector<double> times;
            std::vector<double> positions;
            for (const Tag& t : list) {
                if (!t.key)
                    continue;
                times.push_back(t.time_ms / 1000.0);
                positions.push_back(static_cast<double>(t.pos + shift));
            }
            props.back() = amf_keyframes(times, positions);
            return FlvBuilder().tag(18, 0, on_meta_data(props)).bytes();
        };
        const size_t shift = meta(0).size();
        const Bytes whole = meta(shift);
        for (Tag& t : list)
            t.pos += shift;
        list.insert(list.begin(), {18, 0, 13, shift - 15, false});
        out.insert(out.begin() + 13, whole.begin(), whole.end());
        return *this;
    }

    const Bytes& bytes() const { return out; }
    size_t size() const { return out.size(); }
    const std::vector<Tag>& tags() const { return list; }

private:
    Bytes out;
    std::vector<Tag> list;
};
