#include "Tessarin/platform/foundation/time/NSTimeZone.h"

#include "Tessarin/platform/foundation/files/FilesPrivate.h"
#include "Tessarin/platform/foundation/time/SystemTimeZonePrivate.h"
#include "Tessarin/platform/foundation/time/TimeZoneTablePrivate.h"
#include "Tessarin/platform/foundation/time/UserEnvironmentPrivate.h"
#include "Tessarin/platform/foundation/values/NSError.h"
#include "Tessarin/platform/runtime/FunctionRef.h"

#include <cmath>
#include <cstdlib>
#include <mutex>
#include <unordered_map>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Tessarin {
namespace {

[[maybe_unused]] auto const& registered = registerClass<NSTimeZone>();

constexpr std::string_view database = "/usr/share/zoneinfo/";
constexpr char const* systemFile = "/etc/localtime";

/// The whole second that a date lies in. Beyond some millions of years, and for what is no number, any will do.
std::int64_t second(NSDate const& date) {
    auto const seconds = date.timeIntervalSinceReferenceDate();
    return seconds > -3e14 && seconds < 3e14 ? static_cast<std::int64_t>(std::floor(seconds)) : 0;
}

/// Changes with the file; empty when there is none.
std::string fileState(std::string const& path) {
    struct stat state {};
    if (::stat(path.c_str(), &state) != 0 || !S_ISREG(state.st_mode)) return {};
    return fmt::format("{}:{}:{}.{}", state.st_dev, state.st_ino, state.st_mtim.tv_sec, state.st_mtim.tv_nsec);
}

std::optional<TimeZoneTable> tableOfFile(std::string const& path) try {
    return TimeZoneTable::fromFile(files::readText(path));
} catch (ErrorException const&) {
    return {}; // as if there were none
}

/// "Europe/Berlin" of "/usr/share/zoneinfo/Europe/Berlin"; the path itself when it leads elsewhere.
std::string zoneName(std::string const& path) {
    auto const at = path.rfind("/zoneinfo/");
    return at == path.npos ? path : path.substr(at + 10);
}

/// Zones are few and many ask for them: each that was read stays.
Ref<NSTimeZone> known(std::string const& key, FunctionRef<std::optional<TimeZoneTable>()> makeTable, std::string name) {
    static auto& lock = *new std::mutex;
    static auto& zones = *new std::unordered_map<std::string, Ref<NSTimeZone>>;
    std::lock_guard const hold(lock);
    auto const found = zones.find(key);
    if (found != zones.end()) return found->second;
    auto table = makeTable();
    if (!table) return nullptr;
    auto zone = make<NSTimeZone>(std::move(name), std::make_shared<TimeZoneTable const>(*std::move(table)));
    return zones[key] = std::move(zone);
}

Ref<NSTimeZone> zoneOfFile(std::string const& path, std::string name) {
    auto const state = fileState(path);
    if (state.empty()) return nullptr;
    return known(
        fmt::format("{} {} {}", state, path, name), [&] { return tableOfFile(path); }, name);
}

std::string fileOfName(std::string_view name) {
    if (name.starts_with('/')) return std::string{name};
    bool const leadsOut = fmt::format("/{}/", name).find("/../") != std::string::npos;
    return leadsOut || name.empty() ? std::string{} : fmt::format("{}{}", database, name);
}

Ref<NSTimeZone> utc() {
    static auto const& zone = *new Ref<NSTimeZone>(known(
        "UTC", [] { return TimeZoneTable::fixed(0, "UTC"); }, "UTC"));
    return zone;
}

/// Absent when TZ is not set. ":name" is another way to write a name.
std::optional<std::string_view> wishedZone() {
    auto const* const text = std::getenv("TZ");
    if (!text) return {};
    std::string_view const wish = text;
    return wish.substr(wish.starts_with(':'));
}

/// /etc/localtime is a link into the database, from which the name is.
std::string systemZoneName() {
    std::array<char, 1024> target{};
    auto const size = ::readlink(systemFile, target.data(), target.size());
    return size > 0 ? zoneName({target.data(), static_cast<std::size_t>(size)}) : "localtime";
}

} // namespace

std::string systemTimeZoneKey() {
    auto const wish = wishedZone();
    return fmt::format("{}{} {}", wish ? "TZ=" : "", wish.value_or(""), fileState(wish ? fileOfName(*wish) : systemFile));
}

Ref<NSTimeZone> systemTimeZone() {
    auto const wish = wishedZone();
    auto zone = wish ? NSTimeZone::timeZoneWithName(*wish) : zoneOfFile(systemFile, systemZoneName());
    return zone ? zone : utc();
}

Ref<NSTimeZone> NSTimeZone::timeZoneWithName(std::string_view name) {
    std::string const text{name};
    if (name == "UTC" || name == "GMT")
        return known(
            text, [&] { return TimeZoneTable::fixed(0, text); }, text);
    if (auto zone = zoneOfFile(fileOfName(name), zoneName(text))) return zone;
    return known(
        "rule " + text, [&] { return TimeZoneTable::fromRule(name); }, text);
}

Ref<NSTimeZone> NSTimeZone::timeZoneForSecondsFromGMT(std::int64_t seconds) {
    if (seconds <= -TimeZoneTable::widest || seconds >= TimeZoneTable::widest) return nullptr;
    auto const size = std::abs(seconds);
    auto name = fmt::format("GMT{}{:02}:{:02}", seconds < 0 ? '-' : '+', size / 3600, size / 60 % 60);
    if (size % 60 != 0) name += fmt::format(":{:02}", size % 60);
    return known(
        "fixed " + name, [&] { return TimeZoneTable::fixed(static_cast<std::int32_t>(seconds), name); }, name);
}

Ref<NSTimeZone> const& NSTimeZone::localTimeZone() { return UserEnvironment::current().zone; }
void NSTimeZone::setDefaultTimeZone(Ref<NSTimeZone> zone) { UserEnvironment::setZone(std::move(zone)); }
void NSTimeZone::resetSystemTimeZone() { UserEnvironment::lookAgain(); }

void NSTimeZone::init(std::string name, std::shared_ptr<TimeZoneTable const> table) {
    NSObject::init();
    name_ = std::move(name);
    table_ = std::move(table);
}

std::int64_t NSTimeZone::secondsFromGMTForDate(NSDate const& date) const { return table_->periodAt(second(date)).offset; }
std::string NSTimeZone::abbreviationForDate(NSDate const& date) const {
    return table_->abbreviation(table_->periodAt(second(date)));
}
bool NSTimeZone::isDaylightSavingTimeForDate(NSDate const& date) const { return table_->periodAt(second(date)).isDaylight; }

std::optional<NSDate> NSTimeZone::nextDaylightSavingTimeTransitionAfterDate(NSDate const& date) const {
    auto const change = table_->changeAfter(second(date));
    if (!change) return {};
    return NSDate::dateWithTimeIntervalSinceReferenceDate(static_cast<double>(*change));
}

} // namespace Tessarin
