#include "Tessarin/platform/foundation/bundles/StringsFilePrivate.h"

#include "Tessarin/platform/foundation/bundles/PropertyList.h"
#include "Tessarin/platform/foundation/values/NSError.h"

#include <unicode/uchar.h>
#include <unicode/unistr.h>

namespace Tessarin {
namespace {

/// Reads from the left, in UTF-16, since that is what the escapes \Uxxxx count in.
class StringsReader {
public:
    explicit StringsReader(icu::UnicodeString text) : text_(std::move(text)) {}

    /// Blanks, "// …" and "/* … */".
    void skipBlanks() {
        for (;;) {
            if (u_isUWhiteSpace(next()))
                ++at_;
            else if (text_.compare(at_, 2, u"//") == 0)
                skipPast(u"\n");
            else if (text_.compare(at_, 2, u"/*") == 0)
                skipPast(u"*/");
            else
                return;
        }
    }
    bool skip(char16_t expected) {
        skipBlanks();
        if (next() != expected) return false;
        ++at_;
        return true;
    }
    /// In quotes, or a bare word.
    std::optional<std::string> text() {
        skipBlanks();
        return next() == u'"' ? quoted() : word();
    }

private:
    char16_t next() const { return text_.charAt(at_); } // 0xFFFF at the end
    void skipPast(icu::UnicodeString const& end) {
        auto const found = text_.indexOf(end, at_ + 2);
        at_ = found < 0 ? text_.length() : found + end.length();
    }
    static std::string utf8(icu::UnicodeString const& text) {
        std::string result;
        return text.toUTF8String(result);
    }
    std::optional<std::string> quoted() {
        icu::UnicodeString result;
        for (++at_; at_ < text_.length(); ++at_) {
            if (next() == u'"') return ++at_, utf8(result);
            result.append(next() == u'\\' ? escaped() : next());
        }
        return {};
    }
    char16_t escaped() {
        switch (auto const kind = text_.charAt(++at_)) {
        case u'n': return u'\n';
        case u't': return u'\t';
        case u'r': return u'\r';
        case u'u':
        case u'U': return hexadecimal();
        default: return kind;
        }
    }
    char16_t hexadecimal() {
        unsigned value = 0;
        for (int count = 0; count < 4 && u_digit(text_.charAt(at_ + 1), 16) >= 0; ++count)
            value = value * 16 + static_cast<unsigned>(u_digit(text_.charAt(++at_), 16));
        return static_cast<char16_t>(value);
    }
    std::optional<std::string> word() {
        auto const start = at_;
        while (u_isalnum(next()) || next() == u'_' || next() == u'.' || next() == u'-') ++at_;
        if (at_ == start) return {};
        return utf8(text_.tempSubStringBetween(start, at_));
    }

    icu::UnicodeString text_;
    std::int32_t at_ = 0;
};

icu::UnicodeString decoded(std::string_view content) {
    auto const size = static_cast<std::int32_t>(content.size());
    bool const isLittle = content.starts_with("\xFF\xFE"), isBig = content.starts_with("\xFE\xFF");
    if (isLittle || isBig) return {content.data() + 2, size - 2, isLittle ? "UTF-16LE" : "UTF-16BE"};
    return icu::UnicodeString::fromUTF8(content.substr(content.starts_with("\xEF\xBB\xBF") ? 3 : 0));
}

TextTable pairsOfPropertyList(std::string_view content) {
    TextTable table;
    try {
        auto const root = PropertyList::fromXML(content);
        if (root.kind() != Value::Kind::Dictionary) return table;
        for (auto const& [key, value] : root.dictionary())
            if (auto text = Value(value).as<std::string>()) table.emplace(std::string{std::string_view{key}}, *std::move(text));
    } catch (ErrorException const&) {} // a file that cannot be read translates nothing
    return table;
}

} // namespace

TextTable pairsOfStringsFile(std::string_view content) {
    if (content.find("<plist") != content.npos && content.find('<') < content.find('"')) return pairsOfPropertyList(content);
    TextTable table;
    StringsReader in(decoded(content));
    for (;;) {
        auto key = in.text();
        if (!key || !in.skip(u'=')) return table;
        auto value = in.text();
        if (!value || !in.skip(u';')) return table;
        table.insert_or_assign(*std::move(key), *std::move(value));
    }
}

} // namespace Tessarin
