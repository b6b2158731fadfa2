// SPDX-License-Identifier: Apache-2.0
/// @file
/// The least that reading a track takes: a walk from tag to tag that checks nothing. What the demuxer
/// costs is held against it.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>
#include <vector>

/// A file's descriptor and length, as long as it is open.
struct OpenFile {
    explicit OpenFile(const std::string& path) : fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC))
    {
        struct stat info = {};
        if (fd >= 0 && ::fstat(fd, &info) == 0)
            size = info.st_size;
    }
    ~OpenFile()
    {
        if (fd >= 0)
            ::close(fd);
    }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;

    const int fd;
    int64_t size = 0;
};

// Three ways to the bytes. `copy` returns how many it copied.

/// A system call for each read.
struct PlainReads {
    size_t copy(int64_t offset, void* data, size_t size) const
    {
        const ssize_t n = ::pread(file.fd, data, size, offset);
        return n > 0 ? static_cast<size_t>(n) : 0;
    }
    const OpenFile& file;
};

/// One window of 64 KiB; what is larger goes straight to its place.
struct WindowReads {
    explicit WindowReads(const OpenFile& f) : file{f}, bytes(65536) {}
    size_t copy(int64_t offset, void* data, size_t size)
    {
        if (offset < start || offset + static_cast<int64_t>(size) > end) {
            if (size > bytes.size() / 2)
                return file.copy(offset, data, size);
            start = offset;
            end = offset + static_cast<int64_t>(file.copy(offset, bytes.data(), bytes.size()));
        }
        size = std::min(size, static_cast<size_t>(end - offset));
        std::memcpy(data, bytes.data() + (offset - start), size);
        return size;
    }
    PlainReads file;
    std::vector<uint8_t> bytes;
    int64_t start = 0, end = 0;
};

/// The file mapped into memory: dies of a signal when the file shrinks.
struct MappedReads {
    explicit MappedReads(const OpenFile& f)
        : size_of_file(f.size),
          bytes(static_cast<const uint8_t*>(
              ::mmap(nullptr, static_cast<size_t>(f.size), PROT_READ, MAP_PRIVATE, f.fd, 0)))
    {}
    ~MappedReads() { ::munmap(const_cast<uint8_t*>(bytes), static_cast<size_t>(size_of_file)); }
    size_t copy(int64_t offset, void* data, size_t size) const
    {
        if (offset >= size_of_file)
            return 0;
        size = std::min(size, static_cast<size_t>(size_of_file - offset));
        std::memcpy(data, bytes + offset, size);
        return size;
    }
    const int64_t size_of_file;
    const uint8_t* const bytes;
};

inline uint32_t big_endian(const uint8_t* bytes, int count)
{
    uint32_t value = 0;
    for (int i = 0; i < count; ++i)
        value = value << 8 | bytes[i];
    return value;
}

struct WalkTotals {
    int64_t frames = 0, bytes = 0;
    int64_t last_ms = 0;
};

/// Reads each frame of a track, from the first tag to the end; NAL units with start codes.
/// @param type    8: audio, AAC; 9: video, AVC
/// @param buffer  large enough for every frame
template <typename Source>
WalkTotals walk_track(Source& source, int type, uint8_t* buffer)
{
    constexpr int64_t first_tag = 13;
    WalkTotals totals;
    uint8_t header[11];
    for (int64_t pos = first_tag; source.copy(pos, header, sizeof header) == sizeof header;) {
        const uint32_t size = big_endian(header + 1, 3);
        const int64_t data = pos + 11;
        pos = data + size + 4;
        if (header[0] != type)
            continue;
        totals.last_ms = big_endian(header + 4, 3) | uint32_t{header[7]} << 24;
        size_t length = 0;
        if (type == 8) {
            length = source.copy(data + 2, buffer, size - 2);
        } else {
            uint8_t packet_type = 0;
            uint8_t composition_time[3];
            source.copy(data + 1, &packet_type, 1);
            source.copy(data + 2, composition_time, 3);
            for (int64_t at = data + 5; packet_type == 1 && at < data + size;) {
                uint8_t unit[4] = {};
                source.copy(at, unit, 4);
                std::memcpy(buffer + length, "\0\0\0\1", 4);
                const size_t n = big_endian(unit, 4);
                length += 4 + source.copy(at + 4, buffer + length + 4, n);
                at += static_cast<int64_t>(4 + n);
            }
        }
        uint8_t previous_tag_size[4];
        source.copy(data + size, previous_tag_size, 4);
        ++totals.frames;
        totals.bytes += static_cast<int64_t>(length);
    }
    return totals;
}

/// The place of the keyframe before a time, by the shortest way that the seek without an index could go:
/// from 32 KiB before the estimate to the first plausible tag header, then from tag to tag.
/// @return the offset of its tag, or 0
template <typename Source>
int64_t bare_seek(Source& source, int64_t file_size, int64_t duration_ms, int64_t time_ms)
{
    constexpr int64_t first_tag = 13;
    uint8_t block[2048];
    const int64_t estimate = time_ms * (file_size - first_tag) / duration_ms - 32768;
    int64_t pos = std::max(estimate, first_tag);
    const size_t held = source.copy(pos, block, sizeof block);
    for (size_t i = 0; i + 11 <= held; ++i, ++pos) {
        if ((block[i] != 8 && block[i] != 9 && block[i] != 18) || big_endian(block + i + 8, 3) != 0)
            continue;
        const uint32_t size = big_endian(block + i + 1, 3);
        uint8_t previous[4];
        if (source.copy(pos + 11 + size, previous, 4) == 4 && big_endian(previous, 4) == size + 11)
            break;
    }
    int64_t key = 0;
    uint8_t header[12]; // and the byte with the frame type
    while (source.copy(pos, header, sizeof header) == sizeof header &&
           big_endian(header + 4, 3) <= time_ms) {
        if (header[0] == 9 && header[11] >> 4 == 1)
            key = pos;
        pos += big_endian(header + 1, 3) + 15;
    }
    return key;
}
