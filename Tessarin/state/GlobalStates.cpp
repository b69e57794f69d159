#include "Tessarin/state/GlobalStates.h"

#include "Tessarin/notifications/Notifier.h"

namespace Tessarin {

Ref<Notifier> GlobalStates::operator[](std::string const& description) const {
    auto const found = states_.find(description);
    return found == states_.end() ? nullptr : found->second;
}

void GlobalStates::set(std::string const& description, Ref<Notifier> state) {
    remove(description);
    states_.insert_or_assign(description, std::move(state));
}

void GlobalStates::removeAll() {
    decltype(states_) gone;
    gone.swap(states_);
}

GlobalStates& s_completeGlobalState() {
    static auto& states = *new GlobalStates;
    return states;
}

} // namespace Tessarin
