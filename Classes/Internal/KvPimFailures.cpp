#include "Classes/Internal/KvPimFailures.h"

#include "Net/Url.h"

#include <utility>

namespace kv {

std::shared_ptr<KvRecorder> KvPimFailures::recorderOf(std::weak_ptr<KvPimFailures> const& client) {
    auto const self = client.lock();
    return self ? self->client_.recorder : nullptr;
}

void KvPimFailures::tell(std::string_view operation, net::Failure const& known, GoesOn goesOn) {
    router_.tell<&KvPimDelegate::failureOccurred>(*noted(weak(), operation, 0, known, goesOn));
}

std::shared_ptr<KvFailure const> KvPimFailures::noted(std::weak_ptr<KvPimFailures> const& client,
                                                      std::string_view operation, std::int64_t code, net::Failure known,
                                                      GoesOn goesOn) {
    auto const self = client.lock();
    if (!self) known.serverWords.clear();  // nobody knows any more what must not be said
    auto failure = failureOf(operation, code, known, self ? self->secrets() : std::vector<std::string>());
    failure.goesOn = goesOn == GoesOn::yes;
    auto shared = std::make_shared<KvFailure const>(std::move(failure));
    if (self) self->last_ = shared;
    return shared;
}

std::vector<std::string> KvPimFailures::secrets() const {
    auto secrets = net::secretsOf(net::optionsOf(client_.options.network));
    auto const& token = client_.stateHelper.loginParams.token;
    secrets.push_back(token);
    secrets.push_back(net::percentEncoded(token));  // as the request has it, which a gateway may repeat
    return secrets;
}

}  // namespace kv
