#include "Net/Failure.h"

#include <utility>

namespace kv::net {

Failure Failure::at(KvFailureStage stage, std::string text) {
    bool const isOfTls = stage > KvFailureStage::tls && text.starts_with("TLS: ");
    return {isOfTls ? KvFailureStage::tls : stage, std::move(text)};
}

}  // namespace kv::net
