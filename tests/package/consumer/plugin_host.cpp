// Loads a plugin that uses the library, runs it, and closes it again. The library's threads are at work then, so the
// library has to stay.
#include <cstdio>
#include <initializer_list>

#include <dlfcn.h>

int main(int, char** arguments) {
    void* const plugin = ::dlopen(PLUGIN, RTLD_NOW | RTLD_LOCAL);
    auto* const logIn = plugin ? reinterpret_cast<bool (*)(char const*)>(::dlsym(plugin, "logIn")) : nullptr;
    if (logIn == nullptr) {
        std::fprintf(stderr, "%s\n", ::dlerror());
        return 1;
    }
    bool const isMade = logIn(arguments[1]);
    std::fflush(stdout);
    ::dlclose(plugin);
    for (char const* library : {"libkvpim.so.1", "libkvsocketio.so.1"}) {
        if (::dlopen(library, RTLD_NOW | RTLD_NOLOAD) != nullptr) continue;
        std::fprintf(stderr, "%s is gone, its threads are not\n", library);
        return 1;
    }
    return isMade ? 0 : 1;
}
