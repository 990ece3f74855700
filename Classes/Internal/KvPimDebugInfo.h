// What the application may want to see of a connection when it looks into a problem. Holds the token in clear.
#pragma once

#include "SocketIO/SocketPressure.h"

#include <optional>
#include <string>

#include <boost/json/object.hpp>

namespace kv {

struct KvPimBrivelSocket {
    std::string apiServer;
    std::string brivelServer;
    std::string connectionId;
    boost::json::object toJsonModel() const;
};

struct KvPimLoginArguments {
    std::string userId;
    std::string token;
    double timestamp = 0;
    boost::json::object toJsonModel() const;
};

class KvPimDebugInfo {
public:
    // These record a value, whatever their names say.
    void getApiServer(std::string value) { brivelSocket_.apiServer = std::move(value); }
    void getBrivelServer(std::string value) { brivelSocket_.brivelServer = std::move(value); }
    void getConnectionId(std::string value) { brivelSocket_.connectionId = std::move(value); }
    void loginWithToken(std::string token, std::string userId, double timestamp);
    void logout();
    /// Without what is not set.
    boost::json::object toJsonModel() const;

private:
    KvPimBrivelSocket brivelSocket_;
    std::optional<KvPimLoginArguments> loginArguments_;
};

/// What waits between a client and its server, and has waited.
boost::json::object pressureModel(SocketPressure const& pressure);

}  // namespace kv
