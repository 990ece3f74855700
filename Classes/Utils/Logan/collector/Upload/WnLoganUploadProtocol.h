#pragma once

#include <functional>
#include <string>

namespace kv {

/// What sends one file: one of the two halves that a collector is made of.
class WnLoganUploadProtocol {
public:
    virtual ~WnLoganUploadProtocol() = default;
    /// `result(success)` is called on a background queue, unless an upload is in flight: then nothing happens at all.
    virtual void uploadFile(std::string path, std::function<void(bool success)> result) = 0;
    /// Whether one is in flight. Part of the interface; the library does not ask.
    virtual bool isUploading() const = 0;
};

}  // namespace kv
