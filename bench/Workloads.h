// The seven workloads by which clients are compared. Each prints one line of JSON.
#pragma once

#include "bench/Client.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace bench {

struct Amount {
    long operations = 0;
    long warmUp = 0;
};

/// False when there is no workload of this name.
bool runWorkload(std::string const& name, Subject const& subject, Amount amount);

/// Keeps so many requests under way until all are answered.
void requestPipelined(Client& client, long count, int depth, Content content);
/// The messages arrive as the server likes; each is looked at.
void receiveMessages(Client& client, long count, Content content);
/// Has all clients do the same, so many at a time.
using Clients = std::vector<std::unique_ptr<Client>>;
void withEach(Clients const& clients, std::size_t atATime,
              std::function<void(Client& client, Client::Done done)> const& action);
/// Logs all in, so many at a time.
void loginAll(Clients const& clients, std::size_t atATime);

/// Many clients in one process, each of which receives a message and answers it: the time, the threads, the rest.
void runCrowd(Subject const& subject, long count);
/// Whether one request or event takes longer the more there is of what a client keeps.
void runGrowth(Subject const& subject);
/// What an awaited request costs beside one with a completion.
void runAwaiting(Subject const& subject);

}  // namespace bench
