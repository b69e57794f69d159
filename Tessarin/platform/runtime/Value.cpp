#include "Tessarin/platform/runtime/Value.h"

#include "Tessarin/platform/runtime/NSObject.h"
#include "Tessarin/platform/runtime/ValueBoxesPrivate.h"

#include <cmath>
#include <string>

namespace Tessarin {

Value::Value(Tessarin::Decimal const& value) { ValueBoxes::put(*this, Kind::Decimal, value); }
Value::Value(Ref<NSObject> object) {
    if (object) ValueBoxes::put(*this, Kind::Object, std::move(object));
}
Value::Value(Tessarin::List list) { ValueBoxes::put(*this, Kind::List, std::move(list)); }
Value::Value(Tessarin::Dictionary dictionary) { ValueBoxes::put(*this, Kind::Dictionary, std::move(dictionary)); }
Value::Value(Tessarin::ValueDictionary dictionary) { ValueBoxes::put(*this, Kind::ValueDictionary, std::move(dictionary)); }
Value::Value(ValueSet set) { ValueBoxes::put(*this, Kind::Set, std::move(set)); }

Value Value::large(std::uint64_t number) { return Tessarin::Decimal::fromText(std::to_string(number)).value(); }

Value Value::date(double seconds) {
    Value value;
    value.setNumber(Kind::Date, seconds);
    return value;
}
Value Value::uuid(std::array<std::uint8_t, 16> const& bytes) {
    Value value;
    ValueBoxes::put(value, Kind::UUID, bytes);
    return value;
}
Value Value::data(std::span<std::byte const> bytes) { return data(std::vector<std::byte>(bytes.begin(), bytes.end())); }
Value Value::data(std::vector<std::byte> bytes) {
    Value value;
    ValueBoxes::put(value, Kind::Data, std::move(bytes));
    return value;
}
Value Value::url(std::string_view text) {
    Value value;
    ValueBoxes::put(value, Kind::URL, std::string{text});
    return value;
}

void Value::retain() const noexcept {
    if (kind() == Kind::Text)
        detail::retainText(*this);
    else
        ValueBoxes::retain(*this);
}
void Value::release() noexcept {
    if (kind() == Kind::Text)
        detail::releaseText(*this);
    else
        ValueBoxes::release(*this);
}

bool Value::boolean() const noexcept { return isNumber() && number() != 0; }

std::int64_t Value::integer() const noexcept {
    switch (kind()) {
    case Kind::Boolean:
    case Kind::Integer: return getNumber<std::int64_t>();
    case Kind::Float:
    case Kind::Double: {
        auto const value = getNumber<double>();
        if (std::isnan(value)) return 0;
        if (value >= 0x1p63) return INT64_MAX;
        if (value < -0x1p63) return INT64_MIN;
        return static_cast<std::int64_t>(value);
    }
    default: return 0;
    }
}

double Value::number() const noexcept {
    switch (kind()) {
    case Kind::Boolean:
    case Kind::Integer: return static_cast<double>(getNumber<std::int64_t>());
    case Kind::Float:
    case Kind::Double: return getNumber<double>();
    case Kind::Decimal: return ValueBoxes::get<Tessarin::Decimal>(*this).doubleValue();
    default: return 0;
    }
}

double Value::dateSeconds() const noexcept { return kind() == Kind::Date ? getNumber<double>() : 0; }

std::array<std::uint8_t, 16> Value::uuidBytes() const noexcept {
    if (kind() != Kind::UUID) return {};
    return ValueBoxes::get<std::array<std::uint8_t, 16>>(*this);
}

std::span<std::byte const> Value::bytes() const noexcept {
    if (kind() != Kind::Data) return {};
    return ValueBoxes::get<std::vector<std::byte>>(*this);
}

std::string_view Value::urlText() const noexcept {
    if (kind() != Kind::URL) return {};
    return ValueBoxes::get<std::string>(*this);
}

Tessarin::Decimal Value::decimal() const {
    if (kind() == Kind::Decimal) return ValueBoxes::get<Tessarin::Decimal>(*this);
    if (kind() == Kind::Integer || kind() == Kind::Boolean) return Tessarin::Decimal{integer()};
    return Tessarin::Decimal::fromDouble(number());
}

Ref<NSObject> const& Value::object() const noexcept {
    static Ref<NSObject> const none;
    return kind() == Kind::Object ? ValueBoxes::get<Ref<NSObject>>(*this) : none;
}
List const& Value::list() const noexcept {
    static auto const& none = *new Tessarin::List;
    return kind() == Kind::List ? ValueBoxes::get<Tessarin::List>(*this) : none;
}
Dictionary const& Value::dictionary() const noexcept {
    static auto const& none = *new Tessarin::Dictionary;
    return kind() == Kind::Dictionary ? ValueBoxes::get<Tessarin::Dictionary>(*this) : none;
}
ValueDictionary const& Value::valueDictionary() const noexcept {
    static auto const& none = *new Tessarin::ValueDictionary;
    return kind() == Kind::ValueDictionary ? ValueBoxes::get<Tessarin::ValueDictionary>(*this) : none;
}
ValueSet const& Value::set() const noexcept {
    static auto const& none = *new ValueSet;
    return kind() == Kind::Set ? ValueBoxes::get<ValueSet>(*this) : none;
}

std::ostream& operator<<(std::ostream& out, Value const& value) { return out << value.description(); }

} // namespace Tessarin
