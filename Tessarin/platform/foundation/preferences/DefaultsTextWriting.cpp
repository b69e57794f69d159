#include "Tessarin/platform/foundation/preferences/DefaultsTextPrivate.h"

#include "Tessarin/platform/foundation/preferences/DefaultsTagsPrivate.h"
#include "Tessarin/platform/foundation/values/Base64.h"
#include "Tessarin/platform/foundation/values/NSUUID.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <chrono>
#include <cmath>
#include <fmt/format.h>

namespace Tessarin::defaults {
namespace {

constexpr int deepest = 100; // levels; the parser follows 256 of lists and tables together

std::string_view obstacleAt(Value const& value, int level) {
    if (level > deepest) return "more than a hundred levels";
    switch (value.kind()) {
    case Value::Kind::Absent: return "an absent element";
    case Value::Kind::Object: return "an object";
    case Value::Kind::Set: return "a set";
    case Value::Kind::ValueDictionary: return "a dictionary whose keys are not texts";
    case Value::Kind::List:
        for (auto const& element : value.list())
            if (auto const reason = obstacleAt(element, level + 1); !reason.empty()) return reason;
        return {};
    case Value::Kind::Dictionary:
        for (auto const& [key, element] : value.dictionary()) {
            if (!isUTF8(key)) return "a key that is not UTF-8";
            if (auto const reason = obstacleAt(element, level + 1); !reason.empty()) return reason;
        }
        return {};
    default: return {};
    }
}

bool isBare(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-'; }

std::string quoted(std::string_view text) {
    constexpr std::string_view named = "\b\t\n\f\r\"\\", letters = "btnfr\"\\";
    std::string result = "\"";
    for (char const c : text) {
        if (auto const at = named.find(c); at != named.npos)
            result += {'\\', letters[at]};
        else if (auto const code = static_cast<unsigned char>(c); code < 0x20 || code == 0x7F)
            result += fmt::format("\\u{:04X}", code);
        else
            result += c;
    }
    return result + '"';
}

/// The shortest text that reads back as the same number, with the point or exponent that makes it no integer.
template <class Number> std::string numberText(Number number) {
    if (std::isnan(number)) return "nan";
    if (std::isinf(number)) return number < 0 ? "-inf" : "inf";
    char digits[32];
    std::string text(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
    return text.find_first_of(".e") == text.npos ? text + ".0" : text;
}

std::string floatText(float number) {
    auto text = numberText(number);
    double read = 0;
    std::from_chars(text.data(), text.data() + text.size(), read);
    // The reader makes a double of it first, which could round the other way at the middle of two floats.
    return std::isfinite(number) && static_cast<float>(read) != number ? numberText(double{number}) : text;
}

/// Absent for a date outside the years 1583 to 9999 or one that nanoseconds do not give back exactly.
std::optional<std::string> dateText(double seconds) {
    using namespace std::chrono;
    constexpr sys_days first = year{1583} / January / 1, last = year{9999} / December / 31;
    constexpr double earliest = duration<double>(first - referenceDay).count(),
                     latest = duration<double>(last - referenceDay).count();
    if (!(seconds >= earliest && seconds < latest)) return {};
    auto whole = std::floor(seconds);
    auto nanoseconds = std::llround((seconds - whole) * 1e9);
    if (nanoseconds == 1'000'000'000) nanoseconds = 0, ++whole;
    if (std::bit_cast<std::uint64_t>(dateSeconds(static_cast<std::int64_t>(whole), nanoseconds)) !=
        std::bit_cast<std::uint64_t>(seconds))
        return {};

    auto const moment = sys_seconds(referenceDay) + std::chrono::seconds(static_cast<std::int64_t>(whole));
    auto const day = floor<days>(moment);
    year_month_day const date(day);
    hh_mm_ss const time(moment - day);
    auto fraction = nanoseconds ? fmt::format(".{:09}", nanoseconds) : std::string{};
    while (fraction.ends_with('0')) fraction.pop_back();
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}{}Z", int{date.year()}, unsigned{date.month()}, unsigned{date.day()},
                       time.hours().count(), time.minutes().count(), time.seconds().count(), fraction);
}

std::string tagged(std::string_view tag, std::string_view value) { return fmt::format("{{ {} = {} }}", tag, value); }

std::string listText(List const& list) {
    std::string text;
    for (auto const& element : list) text += (text.empty() ? "" : ", ") + tomlValue(element);
    return "[" + text + "]";
}

std::string dictionaryText(Dictionary const& dictionary) {
    std::string text;
    for (auto const& [key, element] : dictionary) text += (text.empty() ? "" : ", ") + tomlKey(key) + " = " + tomlValue(element);
    text = text.empty() ? "{}" : "{ " + text + " }";
    bool const looksTagged = dictionary.size() == 1 && isTag(dictionary.begin()->key);
    return looksTagged ? tagged(tags::dictionary, text) : text;
}

} // namespace

std::string_view obstacle(Value const& value) { return obstacleAt(value, 1); }

std::string tomlKey(std::string_view key) {
    return !key.empty() && std::ranges::all_of(key, isBare) ? std::string{key} : quoted(key);
}

std::string tomlValue(Value const& value) {
    switch (value.kind()) {
    case Value::Kind::Boolean: return value.boolean() ? "true" : "false";
    case Value::Kind::Integer: return std::to_string(value.integer());
    case Value::Kind::Double: return numberText(value.number());
    case Value::Kind::Float: return tagged(tags::single, floatText(static_cast<float>(value.number())));
    case Value::Kind::Text:
        if (isUTF8(value.text())) return quoted(value.text());
        return tagged(tags::text, quoted(base64FromBytes(std::as_bytes(std::span{value.text()}))));
    case Value::Kind::Date:
        if (auto text = dateText(value.dateSeconds())) return *text;
        return tagged(tags::seconds, numberText(value.dateSeconds()));
    case Value::Kind::Data: return tagged(tags::data, quoted(base64FromBytes(value.bytes())));
    case Value::Kind::UUID: return tagged(tags::uuid, quoted(NSUUID{value.uuidBytes()}.UUIDString()));
    case Value::Kind::URL: return tagged(tags::url, quoted(value.urlText()));
    case Value::Kind::Decimal: return tagged(tags::decimal, quoted(value.decimal().text()));
    case Value::Kind::List: return listText(value.list());
    default: return dictionaryText(value.dictionary());
    }
}

} // namespace Tessarin::defaults
