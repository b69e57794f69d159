#include "Tessarin/dates/NSDate+Formatting.h"

#include "Tessarin/platform/foundation/time/NSDateFormatter.h"

namespace Tessarin {

std::string NSDateFormatting::localTimeString(NSDateFormatterStyle dateStyle, NSDateFormatterStyle timeStyle) const {
    auto const formatter = make<NSDateFormatter>();
    formatter->setDateStyle(dateStyle);
    formatter->setTimeStyle(timeStyle);
    return formatter->stringFromDate(static_cast<NSDate const&>(*this));
}

} // namespace Tessarin
