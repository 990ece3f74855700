#pragma once

namespace kv {

/// How far an operation had come when it failed: each needs the ones before.
enum class KvFailureStage {
    address,    ///< What the application, or discovery, named: addresses and the options of the network.
    name,       ///< A server's name, which has no address that is known.
    tcp,        ///< The connection to a server's port.
    proxy,      ///< The way through a proxy, its name and its own TLS included.
    tls,        ///< TLS with the server: certificates, versions, the files of this side.
    discovery,  ///< The API server's answer, which is to name a socket server.
    upgrade,    ///< The socket server's answer, which is to make the connection a WebSocket.
    session,    ///< The Socket.IO session: its opening, its heartbeat, its end.
    login,      ///< The service's word about user and token, and about the user's session later on.
    request,    ///< One operation of a session, its arguments included.
};

}  // namespace kv
