// Two network namespaces with a cable between them: the test's own, and the service's. They go with the test.
#pragma once

#include "support/ChildProcess.h"
#include "support/Service.h"

#include <functional>
#include <string>
#include <vector>

namespace kv::test {

class Network {
public:
    /// Runs the body in a process of its own, in a network namespace of its own. Skips the test, with the reason, where
    /// that is not to be had. The body's failures are the test's.
    static void inNamespace(std::function<void()> const& body);

    /// To be made inside `inNamespace`.
    Network();

    /// For a service at the other end of the cable.
    Service::Options options(std::vector<std::string> arguments) const;
    void pullCable();
    void plugIn();

private:
    std::string enter() const;

    ChildProcess other_;  // holds the namespace of the other end
};

}  // namespace kv::test
