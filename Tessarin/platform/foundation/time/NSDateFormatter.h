#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/time/NSDate.h"
#include "Tessarin/platform/foundation/time/NSDateFormatterStyle.h"
#include "Tessarin/platform/runtime/NSObject.h"
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Tessarin {

/// Dates as text and back, in the user's locale (LC_ALL, else LC_TIME, else LANG), calendar and time zone; what the user
/// changes is followed within a second. Cheap to make: the costly parts are kept per thread. One formatter belongs to one
/// thread at a time.
///
///     auto const formatter = make<NSDateFormatter>();
///     formatter->setDateFormat("yyyy-MM-dd");
///     auto const date = formatter->dateFromString("2015-03-01");
class TESSARIN_API NSDateFormatter : public NSObject {
public:
    /// The forms of ISO 8601 with milliseconds and of RFC 822. These are written in English and in the Gregorian calendar, and
    /// first read so; only what does not fit there is read as any other format.
    static constexpr std::string_view ISO8601Format = "yyyy-MM-dd'T'HH:mm:ss.SSSZ";
    static constexpr std::string_view RFC822Format = "EEE',' dd' 'MMM' 'yyyy HH':'mm':'ss zzz";

    NSDateFormatterStyle dateStyle() const noexcept { return dateStyle_; }
    void setDateStyle(NSDateFormatterStyle style) { dateStyle_ = style; }
    NSDateFormatterStyle timeStyle() const noexcept { return timeStyle_; }
    void setTimeStyle(NSDateFormatterStyle style) { timeStyle_ = style; }
    /// A pattern of Unicode's locale data (UTS 35), "EEE d MMM yyyy"; unless it is empty, the styles do not count.
    std::string const& dateFormat() const noexcept { return dateFormat_; }
    void setDateFormat(std::string_view format) { dateFormat_ = format; }

    /// Empty when both styles are No and there is no format, and for dates some millions of years away.
    std::string stringFromDate(NSDate const& date) const;
    /// Strictly: absent when a field is out of its range or anything is left over, and for texts of more than 1,000 characters
    /// or 32 digits.
    std::optional<NSDate> dateFromString(std::string_view text) const;

    /// Seven names, Sunday first.
    std::vector<std::string> weekdaySymbols() const;
    std::vector<std::string> shortWeekdaySymbols() const;
    std::vector<std::string> veryShortWeekdaySymbols() const;
    /// As many names as the user's calendar has months: twelve, in some thirteen.
    std::vector<std::string> monthSymbols() const;
    std::vector<std::string> shortMonthSymbols() const;

protected:
    NSDateFormatter() = default;

private:
    NSDateFormatterStyle dateStyle_ = NSDateFormatterStyle::No;
    NSDateFormatterStyle timeStyle_ = NSDateFormatterStyle::No;
    std::string dateFormat_;
};

} // namespace Tessarin
