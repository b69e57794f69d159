#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/time/NSDateFormatterStyle.h"
#include <string>

namespace Tessarin {

class NSDate;

class TESSARIN_API NSDateFormatting {
    friend class NSDate; // only NSDate can carry this room
    constexpr NSDateFormatting() noexcept = default;

public:
    /// In the user's language, calendar and time zone: "01.03.15, 12:30".
    std::string localTimeString(NSDateFormatterStyle dateStyle = NSDateFormatterStyle::Short,
                                NSDateFormatterStyle timeStyle = NSDateFormatterStyle::Short) const;

protected:
    ~NSDateFormatting() = default;
};

} // namespace Tessarin
