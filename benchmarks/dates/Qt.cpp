#include "benchmarks/dates/Peers.h"

#ifdef TESSARIN_HAS_QTCORE
#include <QDateTime>
#include <QTimeZone>

namespace Tessarin::benchmarks {
namespace {

class Qt : public DatePeer {
public:
    Qt() {
        for (auto const instant : instants()) dates_.push_back(QDateTime::fromSecsSinceEpoch(instant, zone_));
    }
    std::int64_t components(std::size_t index) override {
        auto const moment = QDateTime::fromSecsSinceEpoch(instants()[index], zone_); // taking apart begins with an instant
        auto const date = moment.date();
        auto const time = moment.time();
        return date.year() + date.month() + date.day() + time.hour() + time.minute() + time.second() + date.dayOfWeek() % 7 + 1;
    }
    std::int64_t addDay(std::size_t index) override { return number(dates_[index].addDays(1)); }
    std::int64_t addMonth(std::size_t index) override { return number(dates_[index].addMonths(1)); }
    std::int64_t fromComponents(std::size_t index) override {
        auto const& [year, month, day, hour, minute, second] = walls()[index];
        return number(QDateTime(QDate(year, month, day), QTime(hour, minute, second), zone_));
    }
    std::int64_t parseISO(std::string const& text) override { return parsed(text, ::Qt::ISODateWithMs); }
    std::int64_t parseRFC822(std::string const& text) override { return parsed(text, ::Qt::RFC2822Date); }

private:
    static std::int64_t number(QDateTime const& date) { return date.toSecsSinceEpoch() - 978'307'200; }
    static std::int64_t parsed(std::string const& text, ::Qt::DateFormat format) {
        return number(QDateTime::fromString(QString::fromLatin1(text.data(), static_cast<qsizetype>(text.size())), format));
    }

    QTimeZone zone_{"Europe/Berlin"};
    std::vector<QDateTime> dates_;
};

} // namespace
std::unique_ptr<DatePeer> makeQt() { return std::make_unique<Qt>(); }
} // namespace Tessarin::benchmarks
#else
std::unique_ptr<Tessarin::benchmarks::DatePeer> Tessarin::benchmarks::makeQt() { return nullptr; }
#endif
