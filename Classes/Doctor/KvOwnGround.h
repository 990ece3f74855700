// What a client needs of this machine: directories that it can write to.
#pragma once

#include "Classes/KvPimDoctor.h"
#include "Classes/Model/KvPimOptions.h"

#include <vector>

namespace kv {

/// The steps "directories" and "key store". May take seconds: for a thread that can wait.
std::vector<KvPimDoctor::Step> examineOwnGround(KvPimEnvConfig const& config);

}  // namespace kv
