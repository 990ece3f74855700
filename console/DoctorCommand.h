// `kvpim doctor`: why it does not connect, step by step.
#pragma once

#include "console/Options.h"

#include <chrono>
#include <string>

namespace kv::console {

struct DoctorOptions {
    DoctorOptions() { common.appId = "demo"; }

    CommonOptions common;
    std::string userId, token;
    bool triesUpload = false;
    bool isJson = false;
    bool isVerbose = false;
    std::chrono::milliseconds timeout{10'000};
};

/// Prints each step as it ends; returns the exit status: 0 when nothing has failed, else 1.
int runDoctor(DoctorOptions const& options);

}  // namespace kv::console
