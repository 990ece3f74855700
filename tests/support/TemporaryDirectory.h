// A directory that goes with its object, whatever is in it.
#pragma once

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

namespace kv {

class TemporaryDirectory final {
public:
    TemporaryDirectory() {
        auto const place = std::filesystem::temp_directory_path();
        std::random_device random;
        do {
            path_ = (place / ("kvpim-test-" + std::to_string(random()))).generic_string();
        } while (!std::filesystem::create_directory(path_));  // one that was not there
        std::filesystem::permissions(path_, std::filesystem::perms::owner_all);
    }
    TemporaryDirectory(TemporaryDirectory const&) = delete;
    TemporaryDirectory& operator=(TemporaryDirectory const&) = delete;
    ~TemporaryDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    std::string path(std::string const& name = "") const { return name.empty() ? path_ : path_ + "/" + name; }

private:
    std::string path_;
};

/// The names in a directory, sorted; none when it is not there.
inline std::vector<std::string> entriesOf(std::string const& path) {
    std::error_code absent;
    std::vector<std::string> names;
    for (auto const& entry : std::filesystem::directory_iterator(path, absent))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

/// The whole content; empty when there is no file.
inline std::string contentOf(std::string const& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline std::vector<std::string> linesOf(std::string const& path) {
    std::vector<std::string> lines;
    std::ifstream file(path, std::ios::binary);
    for (std::string line; std::getline(file, line);) lines.push_back(line);
    return lines;
}

/// Makes a file with this content.
inline void makeFile(std::string const& path, std::string const& content) {
    std::ofstream(path, std::ios::binary) << content;
}

}  // namespace kv
