// SPDX-License-Identifier: Apache-2.0
// make_recording SHAPE FILE [MB [indexed]]: writes a recording, by default one of the shape's own size.
#include "bench/recording.h"

#include <cstdio>
#include <cstdlib>
#include <memory>

int main(int argc, char** argv)
{
    const Shape* shape = nullptr;
    for (const Shape& s : shapes) {
        if (argc > 2 && argv[1] == std::string(s.name))
            shape = &s;
    }
    if (!shape) {
        std::fprintf(stderr, "usage: make_recording hi|typ|lo|far FILE [MB [indexed]]\n");
        return 2;
    }
    const int64_t size = argc > 3 ? std::atoll(argv[3]) * 1000000 : shape->size;
    const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(argv[2], "wb"), std::fclose);
    bool good = file != nullptr;
    const int64_t tags = write_recording(*shape, size, argc > 4, [&](const Bytes& bytes) {
        good = good && std::fwrite(bytes.data(), 1, bytes.size(), file.get()) == bytes.size();
    });
    if (!good || std::fflush(file.get()) != 0) {
        std::fprintf(stderr, "make_recording: %s cannot be written\n", argv[2]);
        return 1;
    }
    std::printf("%s: %lld tags\n", argv[2], static_cast<long long>(tags));
    return 0;
}
