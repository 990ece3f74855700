// `kvpim chat`: rooms, private messages, presence and invitations in the terminal.
#pragma once

#include "console/Options.h"

#include <string>

namespace kv::console {

struct ChatOptions {
    ChatOptions() {
        common.appId = "demo";
        common.env.apiServer = "http://127.0.0.1:8600";
    }

    std::string userId;
    std::string token = "0123456789abcdef0123456789abcdef";
    CommonOptions common;
};

/// Chats until the user leaves; returns the exit status.
int runChat(ChatOptions const& options);

}  // namespace kv::console
