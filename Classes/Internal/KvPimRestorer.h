// What a reconnection brings back: the channels that were joined, the user's attributes, both kinds of subscription.
// Each is asked for until the server takes it, or there is nothing left to ask for.
#pragma once

#include "Classes/Internal/KvPimRouter.h"
#include "Classes/Internal/KvPimShared.h"
#include "Classes/Model/KvPimRestored.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kv {

class KvPimRestorer final : public KvPimPart<KvPimRestorer> {
public:
    KvPimRestorer(KvPimShared& client, KvPimRouter& router) : KvPimPart(client), router_(router) {}

    /// Asks for all of it, from the beginning. What the connection before had begun is no business of this one.
    void begin();
    /// The connection is lost: what it has not brought back by now is for the next one to tell.
    void onLoss() { told_ = Told::all; }
    /// Nothing is asked for again: the session has ended.
    void end() { ++number_; }

private:
    /// One time that something is asked for.
    struct Attempt {
        std::uint64_t number;  // of the restoring
        std::size_t refusals;  // before it, in a row
        KvMainQueue::Clock::time_point began;
    };
    using Kind = KvPimRestored::Kind;
    using Item = KvPimRestored::Item;
    using Channels = std::vector<std::shared_ptr<KvPimChannel>>;
    void restoreChannels(Channels channels, Attempt const& attempt);
    /// Calls an operation with what `read` finds in the state helper.
    template <class List, void (KvPimKit::*Operation)(List const&, KvPimKit::Completion), class Read>
    void restore(Kind kind, Read read, KvUnansweredChanges KvPimStateHelper::*changes, Attempt const& attempt);
    /// Calls `again(restorer, attempt)` in time, once no such change of the application's is on its way, if that
    /// restoring still goes on.
    template <class Again>
    void retry(Attempt const& refused, KvUnansweredChanges KvPimStateHelper::*changes, Again again);

    /// An item is there from its first attempt on.
    Item& add(Kind kind, std::string const& channelId = {});
    void onAnswer(Attempt const& attempt, Kind kind, std::string const& channelId, std::int64_t code);
    /// It is not wanted any more.
    void forget(Kind kind, std::string const& channelId = {});
    void tellIfAnswered();

    KvPimRouter& router_;
    std::map<std::pair<Kind, std::string>, Item> items_;  // by the channel's id, where it is one
    std::size_t unanswered_ = 0, failed_ = 0;             // of the items
    enum class Told { nothing, part, all } told_ = Told::all;
    std::uint64_t number_ = 0;  // counts what ends a restoring: logouts, and the next one
};

}  // namespace kv
