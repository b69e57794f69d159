#pragma once
#include "Tessarin/platform/foundation/time/NSDateFormatterStyle.h"
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Tessarin {

/// ICU's formats in the user's environment. Making one costs some 20 µs, so each thread keeps those it used, until the
/// environment changes.
struct DateFormat {
    NSDateFormatterStyle dateStyle, timeStyle; // when there is no pattern
    std::string_view pattern;
    bool isForMachines = false; // in English and the Gregorian calendar, whatever the user's are

    /// Seconds since 2001.
    std::string text(double seconds) const;
    std::optional<double> seconds(std::string_view text) const;
};

enum class DateSymbols { Weekdays, ShortWeekdays, VeryShortWeekdays, Months, ShortMonths };
/// The list of names in the user's language.
std::vector<std::string> dateSymbols(DateSymbols list);

} // namespace Tessarin
