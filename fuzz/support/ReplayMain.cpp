// Runs a fuzzer's function once with each file of the directories named: what was found stays found, without clang.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size);
extern "C" [[gnu::weak]] int LLVMFuzzerInitialize(int* argc, char*** argv);

int main(int argc, char** argv) {
    if (LLVMFuzzerInitialize != nullptr) LLVMFuzzerInitialize(&argc, &argv);
    std::size_t inputs = 0;
    for (int i = 1; i < argc; ++i) {
        for (auto const& entry : std::filesystem::directory_iterator(argv[i])) {
            std::fprintf(stderr, "%s\n", entry.path().string().c_str());
            std::ifstream file(entry.path(), std::ios::binary);
            std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
            bytes.shrink_to_fit();  // a sanitizer sees the very end of it
            LLVMFuzzerTestOneInput(reinterpret_cast<std::uint8_t const*>(bytes.data()), bytes.size());
            ++inputs;
        }
    }
    std::fprintf(stderr, "%zu inputs\n", inputs);
    return inputs > 0 ? 0 : 1;
}
