#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/runtime/NSObject.h"

namespace Tessarin {

/// Lets code that is shared with systems that show network activity compile and run unchanged: a desktop shows none, so
/// nothing is counted here, and nothing is ever visible.
class TESSARIN_API NetworkActivityIndicator : public NSObject {
public:
    static void increment() {}
    static void decrement() {}
    static bool isVisible() { return false; }
    void hideIndicator() {}

    static SelectorTable selectors();

protected:
    NetworkActivityIndicator() = default;
};

} // namespace Tessarin
