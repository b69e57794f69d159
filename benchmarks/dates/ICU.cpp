#include "benchmarks/dates/Peers.h"

#include <cmath>
#include <cstdlib>
#include <unicode/calendar.h>
#include <unicode/smpdtfmt.h>

namespace Tessarin::benchmarks {
namespace {

/// Calendar and formats made once, as whoever has measured it does.
class ICU : public DatePeer {
public:
    ICU() {
        icu::Locale const locale("en_US");
        calendar_.reset(icu::Calendar::createInstance(icu::TimeZone::createTimeZone("Europe/Berlin"), locale, status_));
        iso_ = std::make_unique<icu::SimpleDateFormat>("yyyy-MM-dd'T'HH:mm:ss.SSSZ", locale, status_);
        mail_ = std::make_unique<icu::SimpleDateFormat>("EEE',' dd' 'MMM' 'yyyy HH':'mm':'ss zzz", locale, status_);
        if (U_FAILURE(status_)) std::abort();
    }
    std::int64_t components(std::size_t index) override {
        set(index);
        std::int64_t sum = calendar_->get(UCAL_MONTH, status_) + 1;
        for (auto const field : {UCAL_YEAR, UCAL_DATE, UCAL_HOUR_OF_DAY, UCAL_MINUTE, UCAL_SECOND, UCAL_DAY_OF_WEEK})
            sum += calendar_->get(field, status_);
        return sum;
    }
    std::int64_t addDay(std::size_t index) override { return added(index, UCAL_DATE); }
    std::int64_t addMonth(std::size_t index) override { return added(index, UCAL_MONTH); }
    std::int64_t fromComponents(std::size_t index) override {
        auto const& [year, month, day, hour, minute, second] = walls()[index];
        calendar_->clear();
        calendar_->set(year, month - 1, day, hour, minute, second);
        return time();
    }
    std::int64_t parseISO(std::string const& text) override { return parsed(*iso_, text); }
    std::int64_t parseRFC822(std::string const& text) override { return parsed(*mail_, text); }

private:
    void set(std::size_t index) { calendar_->setTime(static_cast<double>(instants()[index]) * 1000, status_); }
    std::int64_t time() { return static_cast<std::int64_t>(calendar_->getTime(status_) / 1000) - 978'307'200; }
    std::int64_t added(std::size_t index, UCalendarDateFields field) {
        set(index);
        calendar_->add(field, 1, status_);
        return time();
    }
    std::int64_t parsed(icu::SimpleDateFormat& format, std::string const& text) {
        return static_cast<std::int64_t>(std::floor(format.parse(icu::UnicodeString::fromUTF8(text), status_) / 1000)) -
               978'307'200;
    }

    UErrorCode status_ = U_ZERO_ERROR;
    std::unique_ptr<icu::Calendar> calendar_;
    std::unique_ptr<icu::SimpleDateFormat> iso_, mail_;
};

} // namespace
std::unique_ptr<DatePeer> makeICU() { return std::make_unique<ICU>(); }
} // namespace Tessarin::benchmarks
