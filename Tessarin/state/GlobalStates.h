#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/runtime/Ref.h"
#include <cstddef>
#include <string>
#include <unordered_map>

namespace Tessarin {

class Notifier;

/// States by their descriptions. Keeps them alive. What leaves is released when the table has been changed, for the end of a
/// state changes it again. Not synchronised: states are made and destroyed by one thread at a time.
class TESSARIN_API GlobalStates {
public:
    /// Null when there is none.
    Ref<Notifier> operator[](std::string const& description) const;
    std::size_t count() const { return states_.size(); }
    auto begin() const { return states_.begin(); }
    auto end() const { return states_.end(); }

    /// What stood there ends before the new one enters.
    void set(std::string const& description, Ref<Notifier> state);
    void remove(std::string const& description) { states_.extract(description); }
    void removeAll();

private:
    std::unordered_map<std::string, Ref<Notifier>> states_;
};

/// Every live GlobalState; made on first use.
TESSARIN_API GlobalStates& s_completeGlobalState();

} // namespace Tessarin
