// SPDX-License-Identifier: Apache-2.0
// Replays files, and the files of folders, through a fuzz target.
#include "fuzz/fuzz.h"

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

namespace fs = std::filesystem;

static bool replay(const fs::path& path)
{
    std::ifstream in(path, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(in)), {});
    if (!in)
        return false;
    const std::unique_ptr<uint8_t[]> block(new uint8_t[bytes.size()]); // exactly its size
    std::memcpy(block.get(), bytes.data(), bytes.size());
    LLVMFuzzerTestOneInput(block.get(), bytes.size());
    return true;
}

int main(int argc, char** argv)
{
    std::vector<fs::path> files;
    for (int i = 1; i < argc; ++i) {
        if (!fs::is_directory(argv[i])) {
            files.emplace_back(argv[i]);
            continue;
        }
        for (const fs::directory_entry& entry : fs::directory_iterator(argv[i]))
            files.push_back(entry.path());
    }
    for (const fs::path& file : files) {
        if (!replay(file)) {
            std::fprintf(stderr, "cannot read %s\n", file.c_str());
            return 1;
        }
    }
    std::printf("%zu inputs\n", files.size());
    return files.empty() ? 1 : 0; // a missing corpus must not look like a passed one
}
