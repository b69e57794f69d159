#include "Tessarin/platform/foundation/time/NSDateFormatter.h"

#include "Tessarin/platform/foundation/time/DateFormatsPrivate.h"

namespace Tessarin {
namespace {

[[maybe_unused]] auto const& registered = registerClass<NSDateFormatter>();

} // namespace

std::string NSDateFormatter::stringFromDate(NSDate const& date) const {
    bool const isForMachines = dateFormat_ == ISO8601Format || dateFormat_ == RFC822Format;
    return DateFormat{dateStyle_, timeStyle_, dateFormat_, isForMachines}.text(date.timeIntervalSinceReferenceDate());
}

std::optional<NSDate> NSDateFormatter::dateFromString(std::string_view text) const {
    std::optional<NSDate> date;
    if (dateFormat_ == ISO8601Format) date = NSDate::dateWithISO8601Text(text);
    if (dateFormat_ == RFC822Format) date = NSDate::dateWithRFC822Text(text);
    if (date) return date;
    auto const seconds = DateFormat{dateStyle_, timeStyle_, dateFormat_}.seconds(text);
    if (!seconds) return {};
    return NSDate::dateWithTimeIntervalSinceReferenceDate(*seconds);
}

std::vector<std::string> NSDateFormatter::weekdaySymbols() const { return dateSymbols(DateSymbols::Weekdays); }
std::vector<std::string> NSDateFormatter::shortWeekdaySymbols() const { return dateSymbols(DateSymbols::ShortWeekdays); }
std::vector<std::string> NSDateFormatter::veryShortWeekdaySymbols() const { return dateSymbols(DateSymbols::VeryShortWeekdays); }
std::vector<std::string> NSDateFormatter::monthSymbols() const { return dateSymbols(DateSymbols::Months); }
std::vector<std::string> NSDateFormatter::shortMonthSymbols() const { return dateSymbols(DateSymbols::ShortMonths); }

} // namespace Tessarin
