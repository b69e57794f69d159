#pragma once
#include "Tessarin/platform/runtime/Closure.h"
#include <memory>

namespace Tessarin {

template <class Signature> class FunctionRef;

/// A borrowed callable, for arguments that are used only before the call returns. Two words, never allocates.
template <class Result, class... Arguments> class FunctionRef<Result(Arguments...)> {
public:
    template <class F>
        requires(!std::is_same_v<std::remove_cvref_t<F>, FunctionRef> && std::is_invocable_r_v<Result, F&, Arguments...>)
    FunctionRef(F&& function) noexcept {
        using Target = std::remove_reference_t<F>;
        if constexpr (std::is_function_v<Target>) {
            target_ = reinterpret_cast<void*>(&function);
            call_ = [](void* target, Arguments... arguments) -> Result {
                return detail::invokeAs<Result>(*reinterpret_cast<Target*>(target), std::forward<Arguments>(arguments)...);
            };
        } else {
            target_ = const_cast<void*>(static_cast<void const*>(std::addressof(function)));
            call_ = [](void* target, Arguments... arguments) -> Result {
                return detail::invokeAs<Result>(*static_cast<Target*>(target), std::forward<Arguments>(arguments)...);
            };
        }
    }

    Result operator()(Arguments... arguments) const { return call_(target_, std::forward<Arguments>(arguments)...); }

private:
    void* target_ = nullptr;
    Result (*call_)(void*, Arguments...) = nullptr;
};

} // namespace Tessarin
