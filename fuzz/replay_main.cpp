// SPDX-License-Identifier: MIT
// Replays saved inputs through a fuzz target without libFuzzer, so every build runs the
// regressions.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv)
{
    int count = 0;
    for (int i = 1; i < argc; ++i) {
        std::error_code ec;
        if (!std::filesystem::is_directory(argv[i], ec)) {
            continue;
        }
        for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
            std::ifstream in(entry.path(), std::ios::binary);
            std::vector<char> bytes{std::istreambuf_iterator<char>(in), {}};
            LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
            ++count;
        }
    }
    std::printf("replayed %d inputs\n", count);
    return 0;
}
