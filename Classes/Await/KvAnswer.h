// How an operation with a completion becomes one that can be awaited: its completion is the teller of what waits.
#pragma once

#include "Classes/Await/KvPending.h"
#include "Classes/Model/KvFailure.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <tuple>
#include <utility>

namespace kv::detail {

template <class T>
T const* valueIn(std::optional<T> const& value) {
    return value ? &*value : nullptr;
}

/// What a completion of this type tells on success: the value that its first argument may hold, or nothing.
template <class Completion>
struct KvTold {
    using Value = void;
};
template <class T, class... Rest>
struct KvTold<std::function<void(std::optional<T> const&, Rest...)>> {
    using Value = T;
};

enum class KvPass { nothing, whatGoesOn };  // which completions are no end yet

/// The completion. `Code` is the operation's enumeration.
template <class Code, class Value, KvPass Pass>
class KvAnswer {
public:
    explicit KvAnswer(KvPending<Value>& pending) : teller_(pending) {}

    template <class... Arguments>
    void operator()(Arguments const&... arguments) const {
        auto const all = std::tie(arguments...);
        std::int64_t const code = std::get<sizeof...(Arguments) - 1>(all);
        if (code != 0) {
            auto failure = currentFailure();
            if (Pass == KvPass::whatGoesOn && failure && failure->goesOn) return;
            teller_.tell(KvError(make_error_code(static_cast<Code>(code)), std::move(failure)));
        } else if constexpr (std::is_void_v<Value>) {
            teller_.tell({});
        } else {
            auto const* value = valueIn(std::get<0>(all));
            teller_.tell(value != nullptr ? *value : Value());
        }
    }

private:
    KvTeller<Value> teller_;
};

/// Begins an operation of `owner`, the form that takes a completion behind `given`.
template <class Code, KvPass Pass = KvPass::nothing, class Owner, class... Parameters, class... Given>
auto awaited(Owner& owner, void (Owner::*operation)(Parameters...), Given&&... given) {
    using Completion = std::tuple_element_t<sizeof...(Parameters) - 1, std::tuple<Parameters...>>;
    using Value = typename KvTold<Completion>::Value;
    KvPending<Value> pending{std::weak_ptr<KvMainQueue>(owner.mainQueue())};
    (owner.*operation)(std::forward<Given>(given)..., KvAnswer<Code, Value, Pass>(pending));
    return pending;
}

}  // namespace kv::detail
