// From what the floors below know of a failure to the record that applications see. Any thread.
#pragma once

#include "Classes/Model/KvFailure.h"
#include "Net/Failure.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace kv {

/// The record, bounded, printable, without the secrets, whoever says them, and with an advice.
KvFailure failureOf(std::string_view operation, std::int64_t code, net::Failure const& known,
                    std::vector<std::string> const& secrets);

/// Any text, in one line that may be shown: bounded, printable, without the secrets and without what stands before the
/// "@" of an address.
std::string forPeople(std::string_view text, std::size_t most, std::vector<std::string> const& secrets);

/// Makes a failure the current one of its thread for as long as it lives: around the call of a completion.
class KvFailureScope final {
public:
    explicit KvFailureScope(std::shared_ptr<KvFailure const> failure);
    KvFailureScope(KvFailureScope const&) = delete;
    KvFailureScope& operator=(KvFailureScope const&) = delete;
    ~KvFailureScope();

private:
    std::shared_ptr<KvFailure const> outer_;
};

}  // namespace kv
