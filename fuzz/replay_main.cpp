// SPDX-License-Identifier: MIT
#include "support.hpp"

#include <filesystem>
#include <fstream>
#include <iterator>

/// Runs a target once on each file of the folder given.
int main(int /*argc*/, char** argv) {
    for (const auto& file : std::filesystem::directory_iterator{argv[1]}) {
        std::ifstream stream{file.path(), std::ios::binary};
        const std::string input{std::istreambuf_iterator<char>{stream}, {}};
        std::printf("%s\n", file.path().c_str());
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(input.data()), input.size());
    }
}
