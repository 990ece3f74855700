#pragma once

#include <cstddef>
#include <string>
#include <utility>

namespace kv {

/// Where a client writes down what goes over its connections, as lines of JSON, for `kvpim show` and `kvpim replay`.
/// Tokens are never in it. A path is one: `options.recordTo = "/var/tmp/app.record";`
struct KvPimRecording {
    KvPimRecording() = default;
    /// All but the file as it is by default.
    KvPimRecording(std::string path)  // NOLINT(google-explicit-constructor): one word for who has one
        : file(std::move(path)) {}
    /// The same.
    KvPimRecording(char const* path) : file(path) {}  // NOLINT(google-explicit-constructor)

    /// The file; empty for no recording. The directory must be there. A record that the file holds already becomes
    /// "FILE.1"; a file that is no record is left alone, and there is no client then. Clients of one process may share
    /// a file, if they want the same of it; another process may not.
    std::string file;
    /// Whether what people say is kept: texts and data of messages, values of attributes, infos of invitations. It is
    /// masked otherwise, to texts of the same length.
    bool withContents = false;
    /// What "FILE" and "FILE.1" may have together: when the first has half of it, it takes the place of the second.
    /// 64 KiB at least.
    std::size_t maxBytes = 64u << 20;
};

}  // namespace kv
