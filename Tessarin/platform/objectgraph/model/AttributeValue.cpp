// Conversion of values to what an attribute of some type keeps.
#include "Tessarin/platform/foundation/text/BlanksPrivate.h"
#include "Tessarin/platform/foundation/text/NumberReadingPrivate.h"
#include "Tessarin/platform/foundation/values/NSUUID.h"
#include "Tessarin/platform/objectgraph/model/NSAttributeDescription.h"

#include <cmath>

namespace Tessarin {
namespace {

using Kind = Value::Kind;

/// The number that a text stands for: "12", "0.0", also "YES" and "NO".
Value numberOf(std::string_view written) {
    auto const text = withoutBlanks(written);
    for (auto const* yes : {"YES", "yes", "true", "TRUE"})
        if (text == yes) return true;
    for (auto const* no : {"NO", "no", "false", "FALSE"})
        if (text == no) return false;
    if (auto const whole = readNumber<std::int64_t>(text)) return *whole;
    if (auto const number = readNumber<double>(text); number && std::isfinite(*number)) return *number;
    return {};
}

Value decimalOf(Value const& value) {
    if (value.isText())
        if (auto const exact = Decimal::fromText(withoutBlanks(value.text()))) return *exact;
    auto const number = value.isText() ? numberOf(value.text()) : value;
    bool const isNumber = (number.isNumber() && !std::isnan(number.number())) || number.kind() == Kind::Decimal;
    return isNumber ? Value(number.decimal()) : Value();
}

Value uuidOf(Value const& value) {
    if (value.isText()) return Value(NSUUID::UUIDWithString(value.text()));
    return value.kind() == Kind::UUID ? value : Value();
}

Value urlOf(Value const& value) {
    if (value.isText()) return value.text().empty() ? Value() : Value::url(value.text());
    return value.kind() == Kind::URL ? value : Value();
}

Value numberFor(NSAttributeType type, Value number) {
    if (number.isText()) number = numberOf(number.text());
    if (number.kind() == Kind::Decimal) number = number.number();
    if (!number.isNumber() || std::isnan(number.number())) return {};
    switch (type) {
    case NSAttributeType::Boolean: return number.boolean();
    case NSAttributeType::Double: return number.number();
    case NSAttributeType::Float: return static_cast<float>(number.number());
    default: return number.integer();
    }
}

} // namespace

Value attributeValue(NSAttributeType type, Value value) {
    switch (type) {
    case NSAttributeType::Integer16:
    case NSAttributeType::Integer32:
    case NSAttributeType::Integer64:
    case NSAttributeType::Double:
    case NSAttributeType::Float:
    case NSAttributeType::Boolean: return numberFor(type, std::move(value));
    case NSAttributeType::Decimal: return decimalOf(value);
    case NSAttributeType::String: return value.isText() ? std::move(value) : Value();
    case NSAttributeType::Date: return value.kind() == Kind::Date && !std::isnan(value.dateSeconds()) ? value : Value();
    case NSAttributeType::BinaryData: return value.kind() == Kind::Data ? std::move(value) : Value();
    case NSAttributeType::UUID: return uuidOf(value);
    case NSAttributeType::URI: return urlOf(value);
    default: return value;
    }
}

} // namespace Tessarin
