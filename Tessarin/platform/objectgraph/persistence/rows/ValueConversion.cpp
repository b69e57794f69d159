#include "Tessarin/platform/objectgraph/persistence/rows/ValueConversionPrivate.h"

#include "Tessarin/platform/runtime/Decimal.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <sqlite3.h>
#include <variant>

namespace Tessarin {
namespace {

using Type = NSAttributeType;
using Number = std::variant<std::monostate, std::int64_t, double, Decimal>; // as it is stored; nothing: there is no exact one

constexpr double pastIntegers = 0x1p63;

/// How many bits, with the sign, an integer of that type has; 0 for what is none.
int bitsOf(Type type) {
    switch (type) {
    case Type::Boolean: return 1;
    case Type::Integer16: return 16;
    case Type::Integer32: return 32;
    case Type::Integer64: return 64;
    default: return 0;
    }
}

bool isNumber(Type type) { return bitsOf(type) != 0 || type == Type::Float || type == Type::Double || type == Type::Decimal; }

Number integerOf(double number) {
    if (!(number >= -pastIntegers && number < pastIntegers) || number != std::trunc(number)) return {};
    return static_cast<std::int64_t>(number);
}

Number integerOf(Decimal const& number) {
    auto const text = number.text();
    std::int64_t integer = 0;
    auto const [end, problem] = std::from_chars(text.data(), text.data() + text.size(), integer);
    return problem == std::errc{} && end == text.data() + text.size() ? Number(integer) : Number();
}

Number integerOf(Number const& number, Type type) {
    auto result = number;
    if (auto const* real = std::get_if<double>(&number)) result = integerOf(*real);
    if (auto const* decimal = std::get_if<Decimal>(&number)) result = integerOf(*decimal);
    auto const* integer = std::get_if<std::int64_t>(&result);
    if (!integer || bitsOf(type) == 64) return result;
    if (type == Type::Boolean) return *integer == 0 || *integer == 1 ? result : Number();
    auto const limit = std::int64_t{1} << (bitsOf(type) - 1);
    return *integer >= -limit && *integer < limit ? result : Number();
}

Number realOf(Number const& number) {
    if (auto const* integer = std::get_if<std::int64_t>(&number)) {
        auto const real = static_cast<double>(*integer);
        return integerOf(real) == number ? Number(real) : Number();
    }
    if (auto const* decimal = std::get_if<Decimal>(&number)) {
        auto const real = decimal->doubleValue();
        return std::isfinite(real) && Decimal::fromDouble(real) == *decimal ? Number(real) : Number();
    }
    return number;
}

Number floatOf(Number const& number) {
    auto const real = realOf(number);
    auto const* value = std::get_if<double>(&real);
    if (!value || std::isinf(*value)) return real;
    bool const isInRange = std::abs(*value) <= static_cast<double>(std::numeric_limits<float>::max());
    return isInRange && static_cast<double>(static_cast<float>(*value)) == *value ? real : Number();
}

Number decimalOf(Number const& number) {
    if (auto const* integer = std::get_if<std::int64_t>(&number)) return Decimal(*integer);
    auto const* real = std::get_if<double>(&number);
    if (!real) return number;
    auto const decimal = Decimal::fromDouble(*real);
    return std::isfinite(*real) && decimal.doubleValue() == *real && Decimal::fromText(decimal.text()) == decimal
               ? Number(decimal)
               : Number();
}

Number converted(Number const& number, Type to) {
    if (bitsOf(to) != 0) return integerOf(number, to);
    switch (to) {
    case Type::Double: return realOf(number);
    case Type::Float: return floatOf(number);
    case Type::Decimal: return decimalOf(number);
    default: return {};
    }
}

Number numberOf(sqlite3_value* value, Type type) {
    switch (sqlite3_value_type(value)) {
    case SQLITE_INTEGER:
        if (bitsOf(type) != 0) return sqlite3_value_int64(value);
        return {};
    case SQLITE_FLOAT:
        if (type == Type::Float || type == Type::Double) return sqlite3_value_double(value);
        return {};
    case SQLITE_TEXT: {
        auto const* text = reinterpret_cast<char const*>(sqlite3_value_text(value));
        if (!text || type != Type::Decimal) return {};
        auto const decimal = Decimal::fromText({text, static_cast<std::size_t>(sqlite3_value_bytes(value))});
        return decimal ? Number(*decimal) : Number();
    }
    default: return {};
    }
}

void giveConverted(sqlite3_context* context, int, sqlite3_value** arguments) noexcept {
    auto const typeAt = [&](int at) { return static_cast<Type>(sqlite3_value_int(arguments[at])); };
    try {
        auto const result = converted(numberOf(arguments[0], typeAt(1)), typeAt(2));
        if (auto const* integer = std::get_if<std::int64_t>(&result)) sqlite3_result_int64(context, *integer);
        if (auto const* real = std::get_if<double>(&result)) sqlite3_result_double(context, *real);
        if (auto const* decimal = std::get_if<Decimal>(&result)) {
            auto const text = decimal->text();
            sqlite3_result_text64(context, text.data(), text.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
        }
    } catch (...) {
        sqlite3_result_error_nomem(context);
    } // an exception must not pass through SQLite
}

} // namespace

ValueConversion conversionBetween(NSAttributeType from, NSAttributeType to) noexcept {
    if (from == to) return ValueConversion::Always;
    if (!isNumber(from) || !isNumber(to)) return ValueConversion::Never;
    auto const bits = bitsOf(from);
    bool const isWider = bits != 0 ? bitsOf(to) > bits || to == Type::Decimal || (to == Type::Double && bits <= 32) ||
                                         (to == Type::Float && bits <= 16)
                                   : from == Type::Float && to == Type::Double;
    return isWider ? ValueConversion::Always : ValueConversion::WhereExact;
}

char const* nameOf(NSAttributeType type) noexcept {
    switch (type) {
    case Type::Integer16: return "Integer 16";
    case Type::Integer32: return "Integer 32";
    case Type::Integer64: return "Integer 64";
    case Type::Decimal: return "Decimal";
    case Type::Double: return "Double";
    case Type::Float: return "Float";
    case Type::String: return "String";
    case Type::Boolean: return "Boolean";
    case Type::Date: return "Date";
    case Type::BinaryData: return "Binary";
    case Type::UUID: return "UUID";
    case Type::URI: return "URI";
    case Type::Transformable: return "Transformable";
    default: return "a type that is not stored";
    }
}

void registerValueConversion(SQLite::Connection& connection) {
    sqlite3_create_function_v2(connection.handle(), "tessarin_converted", 3,
                               SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_DIRECTONLY, nullptr, giveConverted, nullptr, nullptr,
                               nullptr);
}

} // namespace Tessarin
