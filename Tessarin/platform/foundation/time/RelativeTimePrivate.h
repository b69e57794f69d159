#pragma once
#include "Tessarin/platform/foundation/time/NSDateFormatterStyle.h"
#include <string>

namespace Tessarin {

enum class RelativeUnit { Years, Months, Weeks, Days, Hours, Minutes, Seconds };
/// "in 3 days" for 3, "3 days ago" for -3, "now" for no seconds, in the user's language with its plural forms. Full and Long
/// write the unit out, Medium and Short abbreviate it as the language does.
std::string relativeTimeText(double amount, RelativeUnit unit, NSDateFormatterStyle style);

} // namespace Tessarin
