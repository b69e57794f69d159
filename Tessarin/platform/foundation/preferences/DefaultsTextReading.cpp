#include "Tessarin/platform/foundation/preferences/DefaultsTextPrivate.h"

#include "Tessarin/platform/foundation/preferences/DefaultsScanPrivate.h"
#include "Tessarin/platform/foundation/preferences/DefaultsTagsPrivate.h"
#include "Tessarin/platform/foundation/values/Base64.h"
#include "Tessarin/platform/foundation/values/NSError.h"
#include "Tessarin/platform/foundation/values/NSUUID.h"

#include <algorithm>
#include <bit>
#include <chrono>
#include <ctime>
#include <fmt/format.h>
#include <toml++/toml.h>

namespace Tessarin::defaults {
namespace {

Value valueOf(toml::node const& node);

Value dateOf(toml::date_time const& moment) {
    auto const& [date, time, offset] = moment;
    if (!offset) {
        std::tm local{.tm_sec = time.second,
                      .tm_min = time.minute,
                      .tm_hour = time.hour,
                      .tm_mday = date.day,
                      .tm_mon = date.month - 1,
                      .tm_year = date.year - 1900,
                      .tm_isdst = -1,
                      .tm_gmtoff = 0,
                      .tm_zone = nullptr};
        auto const since1970 = std::chrono::sys_seconds(std::chrono::seconds(std::mktime(&local)));
        return Value::date(dateSeconds((since1970 - std::chrono::sys_seconds(referenceDay)).count(), time.nanosecond));
    }
    using namespace std::chrono;
    sys_days const day = year{date.year} / month{date.month} / date.day;
    auto const clock = hours{time.hour} + minutes{time.minute} + seconds{time.second} - minutes{offset->minutes};
    return Value::date(dateSeconds((day - referenceDay + clock).count(), time.nanosecond));
}

std::string timeText(toml::time const& time) {
    auto fraction = time.nanosecond ? fmt::format(".{:09}", time.nanosecond) : std::string{};
    while (fraction.ends_with('0')) fraction.pop_back();
    return fmt::format("{:02}:{:02}:{:02}{}", time.hour, time.minute, time.second, fraction);
}

Value listOf(toml::array const& array) {
    List list;
    list.reserve(array.size());
    for (auto const& element : array) list.push_back(valueOf(element));
    return Value(std::move(list));
}

Dictionary dictionaryOf(toml::table const& table) {
    std::vector<std::pair<toml::key const*, toml::node const*>> entries; // the parser sorts them by name
    for (auto const& [key, node] : table) entries.emplace_back(&key, &node);
    std::ranges::sort(entries, [](auto const& a, auto const& b) { return a.first->source().begin < b.first->source().begin; });
    Dictionary dictionary;
    dictionary.reserve(entries.size());
    for (auto const& [key, node] : entries) dictionary.append(key->str(), valueOf(*node));
    return dictionary;
}

/// What a table with the one key `tag` stands for; absent when it is a plain dictionary after all.
Value taggedValue(std::string_view tag, toml::node const& node) {
    if (tag == tags::dictionary) return node.as_table() ? Value(dictionaryOf(*node.as_table())) : Value();
    if (tag == tags::single || tag == tags::seconds) {
        auto const number = node.value<double>();
        if (!number) return {};
        return tag == tags::seconds ? Value::date(*number) : Value(static_cast<float>(*number));
    }
    auto const* const string = node.as_string();
    if (!string) return {};
    auto const& text = string->get();
    if (tag == tags::url) return Value::url(text);
    if (tag == tags::uuid) return Value(NSUUID::UUIDWithString(text));
    if (tag == tags::decimal) return Value(Decimal::fromText(text));
    auto bytes = bytesFromBase64(text);
    if (!bytes) return {};
    if (tag == tags::data) return Value::data(*std::move(bytes));
    return Value(std::string_view{reinterpret_cast<char const*>(bytes->data()), bytes->size()});
}

Value tableOf(toml::table const& table) {
    if (table.size() == 1 && isTag(table.begin()->first.str()))
        if (auto value = taggedValue(table.begin()->first.str(), table.begin()->second); !value.isAbsent()) return value;
    return Value(dictionaryOf(table));
}

Value valueOf(toml::node const& node) {
    switch (node.type()) {
    case toml::node_type::table: return tableOf(*node.as_table());
    case toml::node_type::array: return listOf(*node.as_array());
    case toml::node_type::string: return Value(node.as_string()->get());
    case toml::node_type::integer: return Value(node.as_integer()->get());
    case toml::node_type::floating_point: return Value(node.as_floating_point()->get());
    case toml::node_type::boolean: return Value(node.as_boolean()->get());
    case toml::node_type::date_time: return dateOf(node.as_date_time()->get());
    case toml::node_type::date: return dateOf(toml::date_time{node.as_date()->get(), toml::time{}});
    case toml::node_type::time: return Value(timeText(node.as_time()->get()));
    default: return {};
    }
}

bool sameBits(double a, double b) { return std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b); }

[[noreturn]] void failInLine(std::int64_t line, std::string_view words) {
    throw ErrorException(NSError::errorWithDomain(NSFormatErrorDomain, line,
                                                  {{NSLocalizedDescriptionKey, fmt::format("line {}: {}", line, words)}}));
}

/// Some ill-formed texts the parser does not refuse: it stops the process, or goes where nothing is defined.
void requireParsable(std::string_view text) {
    for (std::size_t at = text.starts_with(byteOrderMark) ? byteOrderMark.size() : 0;;) {
        at = behindTrivia(text, at);
        if (at == text.size()) return;
        auto const statement = extentFrom(text, at);
        if (statement.problem) failInLine(1 + std::ranges::count(text.substr(0, statement.problemAt), '\n'), statement.problem);
        at = statement.end;
    }
}

toml::table parsed(std::string_view text) {
    requireParsable(text);
    return toml::parse(text);
}

} // namespace

Dictionary dictionaryFromTOML(std::string_view text) {
    try {
        return dictionaryOf(parsed(text));
    } catch (toml::parse_error const& failure) {
        failInLine(failure.source().begin.line, failure.description());
    }
}

std::optional<StatementName> statementName(std::string_view statement) try {
    if (statement.starts_with(byteOrderMark)) return {}; // which only the whole text may begin with
    auto const table = parsed(statement);
    bool const isSection = statement.substr(behindTrivia(statement, 0)).starts_with('[');
    StatementName name{StatementName::Kind::Section, {}};
    for (auto const* level = &table; level;) {
        if (level->empty()) return name;
        if (level->size() > 1) return {}; // several statements
        auto const first = level->begin(); // what it leads to lives in it
        auto const& [key, node] = *first;
        name.parts.emplace_back(key.str());
        level = node.is_table() && !node.as_table()->is_inline() ? node.as_table() : nullptr;
    }
    name.kind = isSection ? StatementName::Kind::Element : StatementName::Kind::Value;
    return name;
} catch (toml::parse_error const&) {
    return {};
} catch (ErrorException const&) {
    return {};
}

bool isSame(Value const& a, Value const& b) {
    if (a.kind() != b.kind()) return false;
    switch (a.kind()) {
    case Value::Kind::Float:
    case Value::Kind::Double: return sameBits(a.number(), b.number());
    case Value::Kind::Date: return sameBits(a.dateSeconds(), b.dateSeconds());
    case Value::Kind::List: return std::ranges::equal(a.list(), b.list(), isSame);
    case Value::Kind::Dictionary:
        return a.dictionary().size() == b.dictionary().size() && std::ranges::all_of(a.dictionary(), [&](auto const& entry) {
                   auto const* const other = b.dictionary().find(entry.key);
                   return other && isSame(entry.value, *other);
               });
    default: return a == b;
    }
}

} // namespace Tessarin::defaults
