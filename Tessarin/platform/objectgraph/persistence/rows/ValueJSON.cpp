#include "Tessarin/platform/objectgraph/persistence/rows/ValueJSONPrivate.h"

#include "Tessarin/platform/foundation/values/Hexadecimal.h"
#include "Tessarin/platform/foundation/values/UTF8Private.h"
#include "Tessarin/platform/runtime/NestingPrivate.h"
#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <simdjson.h>
#include <span>

namespace Tessarin {
namespace {

using Kind = Value::Kind;
namespace dom = simdjson::dom;

void write(std::string& out, Value const& value, std::size_t level);

void writeDouble(std::string& out, double number) {
    if (!std::isfinite(number)) {
        out += fmt::format("{{\"$double\":\"{}\"}}", number);
        return;
    }
    auto const text = fmt::format("{}", number);
    out += text;
    if (text.find_first_of(".e") == std::string::npos) out += ".0";
}

void writeList(std::string& out, auto const& items, std::size_t level) {
    out += '[';
    char const* separator = "";
    for (auto const& item : items) {
        out += std::exchange(separator, ",");
        write(out, item, level + 1);
    }
    out += ']';
}

void writeTagged(std::string& out, char const* tag, Value const& content, std::size_t level = 0) {
    out += fmt::format("{{\"{}\":", tag);
    write(out, content, level);
    out += '}';
}

/// JSON has no other texts than UTF-8, as a value or a key.
void writeText(std::string& out, std::string_view text) {
    if (isUTF8(text)) return appendJSONText(out, text);
    writeTagged(out, "$text", hexadecimalFromBytes(std::as_bytes(std::span(text))));
}

void writeDictionary(std::string& out, Dictionary const& dictionary, std::size_t level) {
    auto const isSayable = [](auto const& entry) { return isUTF8(entry.key.view()); };
    if (!std::ranges::all_of(dictionary, isSayable)) {
        List pairs;
        for (auto const& [key, value] : dictionary) pairs.insert(pairs.end(), {Value(key), value});
        return writeTagged(out, "$pairs", pairs, level);
    }
    out += '{';
    char const* separator = "";
    for (auto const& [key, value] : dictionary) {
        out += std::exchange(separator, ",");
        appendJSONText(out, key.view().starts_with('$') ? "$" + key.string() : key.string());
        out += ':';
        write(out, value, level + 1);
    }
    out += '}';
}

/// What is nested too deeply is left out, as objects are.
void write(std::string& out, Value const& value, std::size_t level) {
    if (level > deepestLevel) {
        out += "null";
        return;
    }
    switch (value.kind()) {
    case Kind::Boolean: out += value.boolean() ? "true" : "false"; return;
    case Kind::Integer: out += std::to_string(value.integer()); return;
    case Kind::Double: return writeDouble(out, value.number());
    case Kind::Float: return writeTagged(out, "$float", value.number());
    case Kind::Date: return writeTagged(out, "$date", value.dateSeconds());
    case Kind::Text: return writeText(out, value.text());
    case Kind::UUID: return writeTagged(out, "$uuid", value.description());
    case Kind::Data: return writeTagged(out, "$data", hexadecimalFromBytes(value.bytes()));
    case Kind::URL: return writeTagged(out, "$url", value.urlText());
    case Kind::Decimal: return writeTagged(out, "$decimal", value.decimal().text());
    case Kind::List: return writeList(out, value.list(), level);
    case Kind::Set: return writeTagged(out, "$set", List(value.set().begin(), value.set().end()), level);
    case Kind::Dictionary: return writeDictionary(out, value.dictionary(), level);
    default: out += "null";
    }
}

std::vector<std::byte> bytesOf(std::string_view text) { return bytesFromHexadecimal(text).value_or(std::vector<std::byte>{}); }

Value uuidOf(std::string_view text) {
    std::string digits(text);
    std::erase(digits, '-');
    auto const bytes = bytesOf(digits);
    std::array<std::uint8_t, 16> uuid{};
    for (std::size_t at = 0; at < std::min(bytes.size(), uuid.size()); ++at) uuid[at] = std::to_integer<std::uint8_t>(bytes[at]);
    return Value::uuid(uuid);
}

Value textOf(std::string_view hexadecimal) {
    auto const bytes = bytesOf(hexadecimal);
    return std::string_view{reinterpret_cast<char const*>(bytes.data()), bytes.size()};
}

Value dictionaryOf(List const& pairs) {
    Dictionary dictionary;
    for (std::size_t at = 0; at + 1 < pairs.size(); at += 2) dictionary.set(pairs[at].text(), pairs[at + 1]);
    return dictionary;
}

double doubleOf(Value const& content) {
    if (!content.isText()) return content.number();
    auto const text = content.text();
    if (text == "nan" || text == "-nan") return std::nan("");
    return text.starts_with('-') ? -HUGE_VAL : HUGE_VAL;
}

Value tagged(std::string_view tag, Value const& content) {
    if (tag == "$date") return Value::date(doubleOf(content));
    if (tag == "$float") return static_cast<float>(doubleOf(content));
    if (tag == "$double") return doubleOf(content);
    if (tag == "$text") return textOf(content.text());
    if (tag == "$pairs") return dictionaryOf(content.list());
    if (tag == "$data") return Value::data(bytesOf(content.text()));
    if (tag == "$uuid") return uuidOf(content.text());
    if (tag == "$url") return Value::url(content.text());
    if (tag == "$decimal") return Decimal::fromText(content.text());
    if (tag == "$set") return ValueSet(content.list().begin(), content.list().end());
    return {};
}

Value read(dom::element element) {
    switch (element.type()) {
    case dom::element_type::BOOL: return element.get_bool().value_unsafe();
    case dom::element_type::INT64: return element.get_int64().value_unsafe();
    case dom::element_type::UINT64: return static_cast<std::int64_t>(element.get_uint64().value_unsafe());
    case dom::element_type::DOUBLE: return element.get_double().value_unsafe();
    case dom::element_type::STRING: return element.get_string().value_unsafe();
    case dom::element_type::ARRAY: {
        List list;
        dom::array const items = element.get_array().value_unsafe();
        for (auto const item : items) list.push_back(read(item));
        return list;
    }
    case dom::element_type::OBJECT: {
        Dictionary dictionary;
        dom::object const entries = element.get_object().value_unsafe();
        for (auto const& [key, value] : entries) {
            if (key.starts_with("$") && !key.starts_with("$$")) return tagged(key, read(value));
            dictionary.set(key.starts_with("$$") ? key.substr(1) : key, read(value));
        }
        return dictionary;
    }
    default: return {};
    }
}

} // namespace

void appendJSONText(std::string& out, std::string_view text) {
    out += '"';
    for (auto const c : text) {
        if (c == '"' || c == '\\')
            (out += '\\') += c;
        else if (static_cast<unsigned char>(c) < 0x20)
            out += fmt::format("\\u{:04x}", static_cast<int>(c));
        else
            out += c;
    }
    out += '"';
}

std::string typedJSON(Value const& value) {
    std::string out;
    write(out, value, 0);
    return out;
}

std::optional<Value> valueOfTypedJSON(std::string_view text) {
    dom::parser parser;
    dom::element root;
    if (parser.parse(text.data(), text.size()).get(root) != simdjson::SUCCESS) return {};
    return read(root);
}

} // namespace Tessarin
