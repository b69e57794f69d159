#include "Tessarin/platform/foundation/values/DescriptionLine.h"

#include "Tessarin/platform/runtime/NSObject.h"
#include "Tessarin/platform/runtime/NumberText.h"
#include "Tessarin/platform/runtime/OneLinePrivate.h"
#include "Tessarin/platform/runtime/QuotedText.h"

#include <charconv>
#include <sstream>
#include <type_traits>
#include <utility>

namespace Tessarin {
namespace {

thread_local DescriptionLine* innermost = nullptr;

template <class Number> void appendDigits(std::string& text, Number number, int base = 10) {
    char digits[24];
    text.append(digits, std::to_chars(digits, digits + sizeof digits, number, base).ptr);
}

void appendCharacter(std::string& text, char32_t character) {
    if (character > 0x10FFFF || (character >= 0xD800 && character < 0xE000)) character = 0xFFFD;
    auto const part = [&](int shift, unsigned mark) { text += static_cast<char>(mark | ((character >> shift) & 0x3F)); };
    if (character < 0x80) {
        text += static_cast<char>(character);
    } else if (character < 0x800) {
        text += static_cast<char>(0xC0 | (character >> 6));
        part(0, 0x80);
    } else if (character < 0x10000) {
        text += static_cast<char>(0xE0 | (character >> 12));
        part(6, 0x80), part(0, 0x80);
    } else {
        text += static_cast<char>(0xF0 | (character >> 18));
        part(12, 0x80), part(6, 0x80), part(0, 0x80);
    }
}

} // namespace

DescriptionLine::DescriptionLine() noexcept
    : outer_(std::exchange(innermost, this)),
      outerLevel_(outer_ ? outer_->outerLevel_ + outer_->level_ + 1 : 0),
      outerSize_(outer_ ? outer_->outerSize_ + outer_->text_.size() : 0),
      path_(outer_ ? outer_->path_ : nullptr) {}
DescriptionLine::~DescriptionLine() { innermost = outer_; }

void DescriptionLine::appendNumber(std::int64_t number) { appendDigits(text_, number); }
void DescriptionLine::appendNumber(std::uint64_t number) { appendDigits(text_, number); }
void DescriptionLine::appendNumber(double number) { text_ += shortestText(number); }
void DescriptionLine::appendNumber(float number) { text_ += shortestText(number); }

void DescriptionLine::appendAddress(void const* address) {
    if (!address) return append("nil");
    text_ += "0x";
    appendDigits(text_, reinterpret_cast<std::uintptr_t>(address), 16);
}

void DescriptionLine::appendText(std::string_view text) {
    if (isInside())
        appendQuotedText(text_, text);
    else
        text_ += text;
}

void DescriptionLine::appendText(std::u32string_view text) {
    std::string encoded;
    for (auto const character : text) appendCharacter(encoded, character);
    appendText(encoded);
}

void DescriptionLine::appendText(std::u16string_view text) {
    std::u32string characters;
    for (std::size_t at = 0; at < text.size(); ++at) {
        char32_t const first = text[at], second = at + 1 < text.size() ? text[at + 1] : 0;
        bool const isPair = first >= 0xD800 && first < 0xDC00 && second >= 0xDC00 && second < 0xE000;
        characters += isPair ? 0x10000 + ((first - 0xD800) << 10) + (second - 0xDC00) : first;
        at += isPair;
    }
    appendText(characters);
}

void DescriptionLine::appendValue(Value const& value) {
    switch (value.kind()) {
    case Value::Kind::Text: return appendText(value.text());
    case Value::Kind::List: return appendElements(value.list(), "[]");
    case Value::Kind::Set: return appendElements(value.set(), "{}");
    case Value::Kind::Dictionary: return appendElements(value.dictionary(), "{}");
    case Value::Kind::ValueDictionary: return appendElements(value.valueDictionary(), "{}");
    case Value::Kind::Object:
        if (!mayFollow(value.object().get())) return appendMention(*value.object());
        return appendOwn(value.object().get(), [&] { return value.object()->description(); });
    default: appendOwn(&value, [&] { return value.description(); });
    }
}

/// Of values, or of keys with values.
template <class Elements> void DescriptionLine::appendElements(Elements const& elements, std::string_view ends) {
    append(ends[0]);
    Inside const inside(*this);
    std::string_view comma;
    for (auto const& each : elements) {
        append(std::exchange(comma, ", "));
        if (!isOpen()) {
            append("…");
            break;
        }
        if constexpr (std::is_same_v<std::remove_cvref_t<decltype(each)>, Value>) {
            appendValue(each);
        } else {
            auto const& [key, held] = each;
            appendValue(Value(key));
            append(": ");
            appendValue(held);
        }
    }
    append(ends[1]);
}

void DescriptionLine::appendOwn(void const* object, FunctionRef<std::string()> description) {
    if (!isOpen()) return append("…");
    Pointee const here(*this, object);
    auto const text = description();
    text_ += isInside() ? asOneLine(text) : text;
}

void DescriptionLine::appendMention(NSObject const& object) {
    std::string_view const name = object.objectClass().name();
    append(name.substr(name.rfind('.') + 1));
    append("(…)");
}

void DescriptionLine::appendStreamed(FunctionRef<void(std::ostream&)> write) {
    std::ostringstream text;
    appendOwn(nullptr, [&] {
        write(text);
        return std::move(text).str();
    });
}

bool DescriptionLine::mayFollow(void const* object) const noexcept {
    if (!isOpen()) return false;
    for (auto const* each = path_; each; each = each->outer_)
        if (each->object_ == object) return false;
    return !path_ || !path_->outer_ || outerSize_ + text_.size() < longLine;
}

} // namespace Tessarin
