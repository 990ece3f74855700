#include "Classes/Await/KvResult.h"
#include "Classes/Model/KvFailure.h"

namespace kv {

std::string KvError::message() const {
    auto text = code_.message();
    if (failure_ && !failure_->cause.empty()) text += " (" + failure_->cause + ")";
    return text;
}

}  // namespace kv
