#pragma once
#include "Tessarin/platform/runtime/Ref.h"
#include <cstdint>
#include <string>
#include <vector>

namespace Tessarin {

class NSCalendar;
class NSTimeZone;

/// What the user's surroundings say: where the clocks are, and how dates and texts are to read. Never changes and is never
/// freed, since there is one per combination that was ever met; so a reader needs neither lock nor count.
struct UserEnvironment {
    std::uint64_t generation = 0; // tells environments apart, for caches
    Ref<NSTimeZone> zone;
    std::string locale; // for dates, in ICU's spelling: "de_DE"
    Ref<NSCalendar> calendar;
    std::vector<std::string> languages; // for texts, the best first: "pt-BR", "pt"

    /// Any thread. Looks at the environment again at most once a second.
    static UserEnvironment const& current();
    /// Looks again at the next use.
    static void lookAgain();
    static void setZone(Ref<NSTimeZone> zone);
};

} // namespace Tessarin
