// The control endpoints of the local service, which break connections and tell what the service knows.
#pragma once

#include <map>
#include <string>

namespace demo {

/// Every call blocks, and throws Failure when the service does not do it.
class Service {
public:
    /// How often each type of event was reported.
    using Reports = std::map<std::string, int>;

    explicit Service(std::string url) : url_(std::move(url)) {}

    std::string const& url() const { return url_; }
    /// Drops a user's connection, as a failing network would.
    void cutConnection(std::string const& userId) const;
    Reports reports() const;

private:
    std::string const url_;
};

}  // namespace demo
