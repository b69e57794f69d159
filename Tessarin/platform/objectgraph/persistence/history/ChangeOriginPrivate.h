#pragma once
#include <string>

namespace Tessarin {

/// Who made the changes of a set, as the history tells it. Immutable.
struct ChangeOrigin {
    std::string author, context;
    friend bool operator==(ChangeOrigin const&, ChangeOrigin const&) = default;
};

} // namespace Tessarin
