// Fifty clients that chat, change attributes, subscribe, invite and are cut off at random; in the end everybody must be
// connected, the service must hold what the clients believe, no message may have come twice, and whoever joins a
// channel must have left it before. With a number of processes the service is a cluster, whose processes are killed at
// random, and whose Redis is started anew half-way. One user comes and goes; all that he is sent while he is away must
// reach him.
//     kv_soak [SECONDS] [CLIENTS] [SEED] [PROCESSES]
#include "classes/Person.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <random>
#include <set>

#include <sys/resource.h>

namespace kv::test {
namespace {

struct Counts {
    long operations = 0, failures = 0, messages = 0, repeated = 0, cuts = 0, deaths = 0, invitations = 0, odd = 0;
} counts;

class Soldier {
public:
    Soldier(LocalService const& service, int number, int all, std::shared_ptr<KvMainQueue> queue)
        : person_(service.url(), "user" + std::to_string(number), std::move(queue)),
          all_(all),
          random_(static_cast<unsigned>(number)) {
        person_.delegate->messageReceived = [this](KvPimKit&, auto const& message, std::string const& peer) {
            note(lastFromPeers_[peer], *message);
        };
        person_.delegate->connectionStateChanged = [this](KvPimKit&, auto, auto) { present_.clear(); };
        listener_->memberJoined = [this](KvPimChannel& channel, KvPimMember const& member) {
            notePresence(channel.channelId(), member.userId, true);
        };
        listener_->memberLeft = [this](KvPimChannel& channel, KvPimMember const& member) {
            notePresence(channel.channelId(), member.userId, false);
        };
        listener_->messageReceived = [this](KvPimChannel& channel, auto const& message, KvPimMember const& from) {
            note(lastInChannels_[channel.channelId() + " " + from.userId], *message);
        };
        invitations_->invitationArrived = [](KvPimInvitationKit& kit, auto const& invitation) {
            ++counts.invitations;
            kit.acceptInvitation(invitation, {});
        };
        invitations_->invitationFailed = [](KvPimInvitationKit&, auto, std::int64_t) {};
        kit().getPimInvitationKit()->setDelegate(invitations_);
    }

    bool login() { return person_.login(); }
    bool isConnected() const { return person_.kit->stateManager().state == KvPimConnectionStateConnected; }
    bool isIdle() const { return !isBusy_; }
    std::string const& userId() const { return person_.userId; }

    // One operation at a time, so that what the client believes is never ahead of what it was told.
    void act() {
        if (isBusy_) return;
        isBusy_ = true;
        ++counts.operations;
        std::string const peer = "user" + std::to_string(pick(all_));
        std::string const name = "room" + std::to_string(pick(10));
        auto const text = std::to_string(++sent_);
        std::string const key = "k" + std::to_string(pick(5));
        switch (pick(8)) {
            case 0:
                return channel(name)->joinWithCompletion(then([this, name] {
                    rooms_.insert(name);
                    present_.erase(name);
                }));
            case 1:
                return channel(name)->leaveWithCompletion(then([this, name] {
                    rooms_.erase(name);
                    present_.erase(name);
                }));
            case 2:
                if (rooms_.empty()) break;
                return channel(*rooms_.begin())->sendMessage(std::make_shared<KvPimMessage>(text), {}, then());
            case 3:
                return kit().sendMessageToPeer(std::make_shared<KvPimMessage>(text), peer,
                                               KvPimSendMessageOptions{true, false}, then());
            case 4:
                return kit().addOrUpdateLocalUserAttributes({{key, text}},
                                                            then([this, key, text] { attributes_[key] = text; }));
            case 5:
                return kit().subscribePeersOnlineStatus({peer}, then([this, peer] { status_.insert(peer); }));
            case 6:
                return kit().unsubscribePeersOnlineStatus({peer}, then([this, peer] { status_.erase(peer); }));
            case 7:
                return kit().getPimInvitationKit()->sendInvitation(KvPimInvitation::initWithInviter(userId(), peer),
                                                                   then());
        }
        isBusy_ = false;
    }

    /// What differs between this client's belief and the service's state; empty for nothing.
    std::string difference(json::object const& users) const {
        auto const* user = users.if_contains(userId());
        if (user == nullptr) return userId() + " is unknown";
        auto const strings = [&](char const* field) {
            std::set<std::string> all;
            for (auto const& entry : user->at(field).as_array()) all.insert(std::string(entry.as_string()));
            return all;
        };
        std::map<std::string, std::string> held;
        for (auto const& [key, value] : user->at("attributes").as_object()) held[key] = std::string(value.as_string());
        if (!user->at("connected").as_bool()) return userId() + " is not connected";
        if (strings("channels") != rooms_) return userId() + " has other channels";
        if (strings("statusSubscriptions") != status_) return userId() + " has other subscriptions";
        if (held != attributes_) return userId() + " has other attributes";
        return {};
    }

private:
    KvPimKit& kit() { return *person_.kit; }
    int pick(int end) { return static_cast<int>(random_() % static_cast<unsigned>(end)); }
    std::shared_ptr<KvPimChannel> channel(std::string const& name) {
        auto& held = channels_[name];
        if (!held) held = kit().createChannelWithId(name, listener_);
        return held;
    }
    KvPimKit::Completion then(std::function<void()> succeeded = {}) {
        return [this, succeeded = std::move(succeeded)](std::int64_t code) {
            if (code == 0 && succeeded) succeeded();
            counts.failures += code != 0;
            isBusy_ = false;
        };
    }
    // One "joined" and one "left" after the other, for as long as this client sees all of them.
    void notePresence(std::string const& channelId, std::string const& member, bool isPresent) {
        auto const [known, isNew] = present_[channelId].try_emplace(member, isPresent);
        if (!isNew) counts.odd += std::exchange(known->second, isPresent) == isPresent;
    }
    // Each sender counts his messages, and they come in his order; one that is not new has come twice.
    static void note(long& last, KvPimMessage const& message) {
        long const number = std::atol(message.text.value_or("0").c_str());
        ++counts.messages;
        counts.repeated += number <= last;
        last = std::max(last, number);
    }

    Person person_;
    int const all_;
    std::minstd_rand random_;
    long sent_ = 0;
    bool isBusy_ = false;
    std::shared_ptr<KvPimChannelDelegate> listener_ = std::make_shared<KvPimChannelDelegate>();
    std::shared_ptr<KvPimInvitationDelegate> invitations_ = std::make_shared<KvPimInvitationDelegate>();
    std::map<std::string, std::shared_ptr<KvPimChannel>> channels_;
    // What the service has confirmed.
    std::set<std::string> rooms_, status_;
    std::map<std::string, std::string> attributes_;
    std::map<std::string, long> lastFromPeers_, lastInChannels_;
    std::map<std::string, std::map<std::string, bool>> present_;  // by channel: members of whom something was told
};

// A user who is away for some seconds, sent messages meanwhile, and back for some.
class Absentee {
public:
    Absentee(LocalService const& service, std::shared_ptr<KvMainQueue> queue)
        : queue_(queue), person_(service.url(), "absentee", queue), sender_(service.url(), "sender", queue) {
        for (auto* person : {&person_, &sender_}) person->delegate->connectionStateChanged = {};
        person_.delegate->messageReceived = [this](KvPimKit&, auto const& message, std::string const&) {
            ++received_[std::atol(message->text.value_or("0").c_str())];
        };
    }

    bool login() { return person_.login() && sender_.login(); }

    // Each phase is longer than what the service takes to know of the one before.
    void act(std::chrono::steady_clock::duration now) {
        if (now < next_ || isBusy_) return;
        next_ = now + 3s;
        phase_ = (phase_ + 1) % 3;
        isBusy_ = true;
        auto const done = [this](std::int64_t) { isBusy_ = false; };
        if (phase_ == 0) return person_.kit->logoutWithCompletion(done);
        if (phase_ == 1) return send(5);
        comeBack();
    }

    /// Is he there, and has he got all that the service took for him?
    bool isContent(std::chrono::steady_clock::duration now) {
        if (phase_ != 2) act(now);
        return phase_ == 2 && !isBusy_ && count([](long times) { return times == 0; }) == 0;
    }
    long lost() const {
        return count([](long times) { return times == 0; });
    }
    long repeated() const {
        return count([](long times) { return times > 1; });
    }
    std::size_t sent() const { return confirmed_.size(); }

private:
    void send(int left) {
        if (left == 0) return void(isBusy_ = false);
        auto const number = ++number_;
        sender_.kit->sendMessageToPeer(std::make_shared<KvPimMessage>(std::to_string(number)), "absentee",
                                       KvPimSendMessageOptions{true, false}, [this, number, left](std::int64_t code) {
                                           if (code == 0) confirmed_.insert(number);
                                           send(left - 1);
                                       });
    }
    void comeBack() {
        person_.kit->loginByToken(kToken, 1, "absentee", [this](std::int64_t code) {
            if (code == 0) return void(isBusy_ = false);
            queue_->post([this] { comeBack(); });
        });
    }
    template <class Predicate>
    long count(Predicate isCounted) const {
        return std::count_if(confirmed_.begin(), confirmed_.end(), [&](long number) {
            auto const found = received_.find(number);
            return isCounted(found == received_.end() ? 0 : found->second);
        });
    }

    std::shared_ptr<KvMainQueue> queue_;
    Person person_, sender_;
    int phase_ = 2;
    bool isBusy_ = false;
    std::chrono::steady_clock::duration next_{0};
    long number_ = 0;
    std::set<long> confirmed_;       // messages that the service has taken
    std::map<long, long> received_;  // message -> how often it came
};

int soak(int seconds, int clients, unsigned seed, int processes) {
    LocalService::Options options;
    if (processes > 0) options.arguments = {"--cluster", std::to_string(processes)};
    LocalService service(options);
    if (service.url().empty()) return 1;
    auto const queue = KvMainQueue::create();
    std::vector<std::unique_ptr<Soldier>> soldiers;
    for (int number = 0; number < clients; ++number) {
        soldiers.push_back(std::make_unique<Soldier>(service, number, clients, queue));
        if (!soldiers.back()->login()) return std::fputs("a client cannot log in\n", stderr), 1;
    }
    Absentee absentee(service, queue);
    if (!absentee.login()) return std::fputs("a client cannot log in\n", stderr), 1;
    std::minstd_rand random(seed);
    auto const start = std::chrono::steady_clock::now();
    auto const elapsed = [&] { return std::chrono::steady_clock::now() - start; };
    auto nextCut = 1s, nextLine = 10s, nextPause = 15s, nextDeath = 5s;
    bool isRedisNew = processes == 0;
    while (elapsed() < std::chrono::seconds(seconds)) {
        for (auto const& soldier : soldiers) {
            if (soldier->isConnected() && random() % 4 == 0) soldier->act();
        }
        absentee.act(elapsed());
        queue->runFor(10ms);
        if (elapsed() > nextCut) {
            nextCut += 1s;
            auto const& unlucky = *soldiers[random() % soldiers.size()];
            if (service.drop(unlucky.userId())) ++counts.cuts;
        }
        if (processes > 0 && elapsed() > nextDeath) {
            nextDeath += 5s;
            ++counts.deaths;
            service.control("kill", {{"number", 1 + random() % static_cast<unsigned>(processes)}});
        }
        if (!isRedisNew && elapsed() > std::chrono::seconds(seconds) / 2) {
            isRedisNew = true;
            service.control("restartRedis", json::object());
        }
        if (elapsed() > nextPause) {  // the application stands still, and what comes must wait
            nextPause += 15s;
            std::this_thread::sleep_for(3s);
        }
        if (elapsed() > nextLine) {
            nextLine += 10s;
            std::printf("%4lld s  %ld operations, %ld messages, %ld cuts\n",
                        static_cast<long long>(std::chrono::duration_cast<std::chrono::seconds>(elapsed()).count()),
                        counts.operations, counts.messages, counts.cuts);
            std::fflush(stdout);
        }
    }
    std::string different;
    bool const isSame = runUntil(*queue, [&] {
        for (auto const& soldier : soldiers) {
            if (!soldier->isConnected() || !soldier->isIdle()) return false;
        }
        if (!absentee.isContent(elapsed())) return false;
        auto const state = service.state();
        auto const& users = state.at("apps").at("app").at("users").as_object();
        for (auto const& soldier : soldiers) {
            different = soldier->difference(users);
            if (!different.empty()) return false;
        }
        return true;
    });
    std::printf("%ld operations (%ld failed or cut off), %ld messages, %ld of them twice, %ld invitations, %ld cuts",
                counts.operations, counts.failures, counts.messages, counts.repeated, counts.invitations, counts.cuts);
    if (processes > 0) std::printf(", %ld processes killed", counts.deaths);
    std::printf("\n%zu kept messages, %ld lost, %ld twice; %ld times joined or left twice\n", absentee.sent(),
                absentee.lost(), absentee.repeated(), counts.odd);
    if (!isSame)
        std::printf("not as believed: %s\n",
                    different.empty() ? "somebody is not connected or not answered" : different.c_str());
    service.kill(SIGTERM);  // with all that belongs to a cluster
    // What a process told in its last moment, the next one may tell again: clients do not say what has reached them.
    auto const repeated = counts.repeated + absentee.repeated();
    return isSame && absentee.lost() == 0 && counts.odd == 0 && repeated <= counts.deaths ? 0 : 1;
}

}  // namespace
}  // namespace kv::test

int main(int argc, char** argv) {
    auto const number = [&](int index, int otherwise) { return argc > index ? std::atoi(argv[index]) : otherwise; };
    return kv::test::soak(number(1, 120), number(2, 50), static_cast<unsigned>(number(3, 1)), number(4, 0));
}
