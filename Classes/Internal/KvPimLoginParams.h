#pragma once

#include <cstdint>
#include <string>

#include <boost/json/object.hpp>

namespace kv {

/// The credentials of the present login, and the socket configuration that they make.
struct KvPimLoginParams {
    /// Credentials are there: between a login call and logout.
    bool login = false;
    std::string userId;
    std::string appId;
    std::string token;
    std::int64_t timestamp = 0;

    void loginWithToken(std::string newToken, std::string newAppId, std::string newUserId, std::int64_t newTimestamp);
    /// Part of the interface; the library does not call it.
    void renewToken(std::string newToken, std::int64_t newTimestamp);
    void logout();
    /// A configuration for one connection, with the time at which it was made; empty without credentials.
    boost::json::object generateSocketConfig() const;
};

/// The configuration that carries these credentials (an object) to the server of an application.
boost::json::object socketConfigOf(boost::json::object const& credentials, std::string const& appId);

}  // namespace kv
