// SPDX-License-Identifier: Apache-2.0
// Writes the seed corpus into a folder.
#include "fuzz/seeds.h"

#include <cstdio>
#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: fuzz_seeds FOLDER\n");
        return 2;
    }
    for (const Seed& seed : seeds()) {
        const fs::path folder = fs::path(argv[1]) / seed.target;
        fs::create_directories(folder);
        std::ofstream out(folder / seed.name, std::ios::binary);
        out.write(reinterpret_cast<const char*>(seed.bytes.data()),
                  static_cast<std::streamsize>(seed.bytes.size()));
        if (!out.flush()) {
            std::fprintf(stderr, "cannot write %s\n", (folder / seed.name).c_str());
            return 1;
        }
    }
    return 0;
}
