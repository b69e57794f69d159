#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/runtime/Enumeration.h"
#include <optional>

namespace Tessarin {

/// Which of a formatter's lists a name is taken from: `weekdaySymbols`, `shortWeekdaySymbols`, `veryShortWeekdaySymbols`.
struct TESSARIN_API DateSymbolLength : Enumeration<DateSymbolLength> {
    static const DateSymbolLength Normal, Short, VeryShort;
    /// 0 to 2.
    static std::optional<DateSymbolLength> fromRawValue(std::int64_t rawValue);

private:
    using Enumeration::Enumeration;
};

inline constexpr DateSymbolLength DateSymbolLength::Normal{0};
inline constexpr DateSymbolLength DateSymbolLength::Short{1};
inline constexpr DateSymbolLength DateSymbolLength::VeryShort{2};

} // namespace Tessarin
