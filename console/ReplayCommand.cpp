#include "console/ReplayCommand.h"

#include "Classes/KvPimKit.h"
#include "TestKit/Replay.h"
#include "console/Options.h"
#include "console/chat/SafeText.h"

#include <cstdio>
#include <stdexcept>

namespace kv::console {

int runReplay(ReplayOptions const& options) {
    KvPimKit::setConsole([](KvConsoleStream, std::string_view) {});
    test::Replay replay;
    try {
        replay = test::replay(options.file, options.client);
    } catch (std::invalid_argument const& error) {
        throw BadUsage(error.what());
    }
    for (auto const& line : options.isQuiet ? replay.differences : replay.story)
        std::printf("%s\n", harmless(line).c_str());
    if (!options.isQuiet)
        std::printf(replay.differences.empty() ? "The same as in the record.\n" : "%zu differences.\n",
                    replay.differences.size());
    return replay.differences.empty() ? 0 : 1;
}

}  // namespace kv::console
