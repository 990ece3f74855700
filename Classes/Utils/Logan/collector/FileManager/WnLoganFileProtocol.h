#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kv {

/// What keeps records until they are uploaded.
class WnLoganFileProtocol {
public:
    virtual ~WnLoganFileProtocol() = default;
    /// Any thread; returns at once.
    virtual void writeLog(std::string record) = 0;
    /// Asks for records soon, in the background, and writes them. Any thread; returns at once.
    virtual void writeSoon(std::function<std::vector<std::string>()> records) = 0;
    /// The next file to upload, if there is one. May wait for the disk, like those below. No other process is offered
    /// it until this one has told what became of it.
    virtual std::optional<std::string> getWaitUploadFilePath() = 0;
    /// Disposes of a file that was uploaded. It is not offered again, even if it could not be disposed of.
    virtual void fileWasUploaded(std::string const& path) = 0;
    /// The file that was offered last stays where it is.
    virtual void fileWasNotUploaded() = 0;
    /// Waits until the records given before are in a file, or are given up.
    virtual void drain() = 0;
};

}  // namespace kv
