#include "Platform/KvDirectories.h"
#include "Platform/KvWindowsText.h"

#include <objbase.h>
#include <shlobj.h>
#include <windows.h>

namespace kv {
namespace {

// What belongs to this user on this machine, and goes to no other one with him.
std::string localApplicationData() {
    // As on other systems the environment may say otherwise, and a relative path is none.
    if (auto const* const value = ::_wgetenv(L"LOCALAPPDATA")) {
        if (std::filesystem::path const path = value; path.is_absolute()) {
            auto text = utf8Of(path);
            while (text.ends_with('/')) text.pop_back();
            return text;
        }
    }
    std::string found;
    wchar_t* path = nullptr;
    if (::SHGetKnownFolderPath(FOLDERID_LocalAppData, KF_FLAG_DONT_VERIFY, nullptr, &path) == S_OK)
        found = utf8Of(path);
    ::CoTaskMemFree(path);
    return found;
}

}  // namespace

std::string cachesDirectory() { return localApplicationData() + "/cache"; }

std::string dataDirectory() { return localApplicationData(); }

}  // namespace kv
