#include "Classes/KvPimDoctor.h"

#include "Classes/Doctor/KvExamination.h"

#include <array>

namespace kv {

KvPimDoctor::KvPimDoctor(Subject subject, std::function<void(Step const&)> onStep,
                         std::function<void(Summary const&)> onEnd)
    : examination_(std::make_shared<KvExamination>(std::move(subject), std::move(onStep), std::move(onEnd))) {
    examination_->start();
}

KvPimDoctor::~KvPimDoctor() { examination_->abandon(); }

std::string_view toString(KvPimDoctor::Outcome outcome) {
    static constexpr std::array<std::string_view, 4> kNames{"passed", "warned", "failed", "skipped"};
    auto const index = static_cast<std::size_t>(outcome);
    return index < kNames.size() ? kNames[index] : "unknown";
}

}  // namespace kv
