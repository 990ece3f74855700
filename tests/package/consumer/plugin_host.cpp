// Loads a plugin that uses the library, runs it, and closes it again. The library's threads are at work then, so the
// library has to stay.
#include <cstdio>

#include <dlfcn.h>

int main(int count, char** arguments) {
    void* const plugin = ::dlopen(PLUGIN, RTLD_NOW | RTLD_LOCAL);
    auto* const run = plugin ? reinterpret_cast<int (*)(int, char**)>(::dlsym(plugin, "_Z10pluginMainiPPc")) : nullptr;
    if (run == nullptr) {
        std::fprintf(stderr, "%s\n", ::dlerror());
        return 1;
    }
    int const result = run(count, arguments);
    std::fflush(stdout);
    ::dlclose(plugin);
    for (char const* library : {"libkvpim.so.1", "libkvsocketio.so.1"}) {
        if (::dlopen(library, RTLD_NOW | RTLD_NOLOAD) != nullptr) continue;
        std::fprintf(stderr, "%s is gone, its threads are not\n", library);
        return 1;
    }
    return result;
}
