// What a doctor does: one coroutine on the main queue, from the address to the last step. A step that has failed is
// followed by those that need it, skipped.
#pragma once

#include "Classes/Await/KvTask.h"
#include "Classes/KvPimDoctor.h"
#include "Classes/Model/KvFailure.h"
#include "Net/Failure.h"
#include "Net/Http.h"
#include "Net/NetworkOptions.h"
#include "Net/Probe.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kv {

class KvPimKit;

class KvExamination final : public std::enable_shared_from_this<KvExamination> {
public:
    using Step = KvPimDoctor::Step;
    using Outcome = KvPimDoctor::Outcome;
    using Summary = KvPimDoctor::Summary;

    KvExamination(KvPimDoctor::Subject subject, std::function<void(Step const&)> onStep,
                  std::function<void(Summary const&)> onEnd);

    void start();
    /// Nobody is called any more.
    void abandon();

private:
    static KvTask<> run(std::shared_ptr<KvExamination> self);

    // The road. Each either ends its step or leaves it out; `server`: "" or "socket ".
    void examineAddress();
    KvTask<> reach(net::Way way, std::string server);
    KvTask<> lookUpNames(net::Way way, std::string name, net::Endpoints& endpoints);
    KvTask<> connect(net::Way way, std::string name, net::Endpoints endpoints);
    KvTask<> passProxy(net::Way way, std::string name);
    KvTask<> secure(net::Way way, std::string name);
    KvTask<> discover();
    void compareClocks(std::vector<std::string> const& headers);
    KvTask<> openSession();
    void makeKit();
    KvTask<> login();
    KvTask<> goRound();
    // What needs no road.
    KvTask<> upload();
    KvTask<> examineGround();

    // A step's life. `begin` is false where the step is skipped, because the road has ended before.
    bool begin(std::string name);
    void beginAside(std::string name);
    void detail(std::string name, std::string fact) { step_.details.emplace_back(std::move(name), std::move(fact)); }
    void pass(std::string found) { end(Outcome::passed, std::move(found)); }
    void warn(std::string found, std::string advice) { end(Outcome::warned, std::move(found), std::move(advice)); }
    void skip(std::string found) { end(Outcome::skipped, std::move(found)); }
    void fail(net::Failure const& known, std::string advice = {});
    void fail(KvFailure const& failure, std::string advice = {});
    void end(Outcome outcome, std::string found, std::string advice = {});
    void tell(Step step);

    std::shared_ptr<KvMainQueue> queue() const { return queue_.lock(); }
    std::string forPeople(std::string_view text, std::size_t most) const;
    std::vector<std::pair<std::string, std::string>> connectParams() const;

    KvPimDoctor::Subject subject_;  // without its queue
    std::string const apiServer_;
    net::NetworkOptions const network_;
    // Weak, and never held over a wait: the coroutine must not keep the queue that would end it.
    std::weak_ptr<KvMainQueue> const queue_;
    std::vector<std::string> const secrets_;
    std::function<void(Step const&)> onStep_;
    std::function<void(Summary const&)> onEnd_;
    bool isAbandoned_ = false;
    KvPending<void> task_;

    std::optional<net::Way> toApi_, toSocket_;
    std::shared_ptr<KvPimKit> kit_;  // holds the queue; gone with the doctor
    Step step_;
    bool isAside_ = false;  // the step at hand is none of the road
    std::string brokenBy_;  // the step that has failed, and what follows needs
    Summary summary_;
    KvMainQueue::Clock::time_point const started_ = KvMainQueue::Clock::now();
    KvMainQueue::Clock::time_point stepStarted_;
};

}  // namespace kv
