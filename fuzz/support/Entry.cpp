// What libFuzzer, or ReplayMain.cpp, calls with each input.
#include "fuzz/support/Input.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    kv::fuzz::run({data, size});
    return 0;
}
