// Values to JSON text.
#include "Tessarin/platform/foundation/json/JSON.h"
#include "Tessarin/platform/foundation/values/NSError.h"
#include "Tessarin/platform/runtime/NestingPrivate.h"

#include <charconv>
#include <cmath>
#include <fmt/format.h>

namespace Tessarin::JSON {
namespace {

using Kind = Value::Kind;

[[noreturn]] void refuseBecause(std::string problem) {
    throw ErrorException(NSError::errorWithDomain(NSFormatErrorDomain, 3, {{NSLocalizedDescriptionKey, std::move(problem)}}));
}
[[noreturn]] void refuse(Value const& value) { refuseBecause(fmt::format("JSON cannot say {}", value.description())); }

void writeText(std::string& out, std::string_view text) {
    out += '"';
    for (char const c : text) {
        switch (c) {
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        case '\n': out += "\\n"; break;
        case '\t': out += "\\t"; break;
        case '\r': out += "\\r"; break;
        default:
            if (static_cast<unsigned char>(c) < 0x20)
                out += fmt::format("\\u{:04x}", c);
            else
                out += c;
        }
    }
    out += '"';
}

/// The shortest digits that read back; a float in its own: 0.1f is 0.1 and not 0.10000000149011612.
template <class Number> void writeNumber(std::string& out, Number number) {
    char digits[32];
    out.append(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
}

void write(std::string& out, Value const& value, std::size_t level = 0);

template <class Entries> void writeObject(std::string& out, Entries const& entries, std::size_t level) {
    out += '{';
    bool isFirst = true;
    for (auto const& [key, value] : entries) {
        if (!std::exchange(isFirst, false)) out += ',';
        Value const name{key};
        if (!name.isText()) refuse(name);
        writeText(out, name.text());
        out += ':';
        write(out, value, level + 1);
    }
    out += '}';
}

void writeList(std::string& out, List const& list, std::size_t level) {
    out += '[';
    for (auto const& element : list) {
        if (&element != list.data()) out += ',';
        write(out, element, level + 1);
    }
    out += ']';
}

void write(std::string& out, Value const& value, std::size_t level) {
    if (level > deepestLevel) refuseBecause("this is nested too deeply for JSON");
    switch (value.kind()) {
    case Kind::Absent: out += "null"; return;
    case Kind::Boolean: out += value.boolean() ? "true" : "false"; return;
    case Kind::Integer: return writeNumber(out, value.integer());
    case Kind::Float:
    case Kind::Double:
        if (!std::isfinite(value.number())) refuse(value);
        return value.kind() == Kind::Float ? writeNumber(out, static_cast<float>(value.number()))
                                           : writeNumber(out, value.number());
    case Kind::Decimal: out += value.decimal().text(); return;
    case Kind::Text: writeText(out, value.text()); return;
    case Kind::List: writeList(out, value.list(), level); return;
    case Kind::Dictionary: writeObject(out, value.dictionary(), level); return;
    case Kind::ValueDictionary: writeObject(out, value.valueDictionary(), level); return;
    default: refuse(value);
    }
}

} // namespace

std::string text(Value const& value) {
    std::string out;
    write(out, value);
    return out;
}

} // namespace Tessarin::JSON
