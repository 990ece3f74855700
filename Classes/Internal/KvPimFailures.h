// Where operations end that fail: what is known of the failure goes to the completion, to `lastFailure` and to who
// listens.
#pragma once

#include "Classes/Internal/KvFailureRecord.h"
#include "Classes/Internal/KvPimRouter.h"
#include "Classes/Internal/KvPimShared.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace kv {

class KvPimFailures final : public KvPimPart<KvPimFailures> {
public:
    enum class GoesOn { no, yes };

    KvPimFailures(KvPimShared& client, KvPimRouter& router) : KvPimPart(client), router_(router) {}

    std::shared_ptr<KvFailure const> const& last() const { return last_; }
    KvPimCounters& counters() const { return *client_.counters; }
    /// Itself, as `weak` gives it, for each of many requests.
    std::weak_ptr<KvPimFailures> const& handle() {
        if (handle_.expired()) handle_ = weak();
        return handle_;
    }
    /// Null where nothing is recorded, and where the client is gone.
    static std::shared_ptr<KvRecorder> recorderOf(std::weak_ptr<KvPimFailures> const& client);
    /// Tells of a failure that completes nothing.
    void tell(std::string_view operation, net::Failure const& known, GoesOn goesOn);

    /// Calls `conclude`, which calls a completion with `code`, while what `known()` gives is the current failure; for
    /// success just so. `client` may be gone.
    template <class Known, class Conclude>
    static void concluding(std::weak_ptr<KvPimFailures> const& client, std::string_view operation, std::int64_t code,
                           Known const& known, Conclude const& conclude, GoesOn goesOn = GoesOn::no) {
        if (code == 0) return conclude();
        auto const failure = noted(client, operation, code, known(), goesOn);
        {
            KvFailureScope const scope(failure);
            conclude();
        }
        if (auto const self = living(client)) self->router_.tell<&KvPimDelegate::failureOccurred>(*failure);
    }

private:
    static std::shared_ptr<KvFailure const> noted(std::weak_ptr<KvPimFailures> const& client,
                                                  std::string_view operation, std::int64_t code, net::Failure known,
                                                  GoesOn goesOn);
    std::vector<std::string> secrets() const;

    KvPimRouter& router_;
    std::shared_ptr<KvFailure const> last_;
    std::weak_ptr<KvPimFailures> handle_;
};

}  // namespace kv
