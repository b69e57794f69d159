#include "Tessarin/platform/foundation/predicates/PredicateLexerPrivate.h"

#include "Tessarin/platform/foundation/predicates/PredicateFormatPrivate.h"

#include <charconv>
#include <limits>

namespace Tessarin {
namespace {

using Kind = PredicateToken::Kind;

bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }
bool startsWord(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || (static_cast<unsigned char>(c) & 0x80);
}
bool continuesWord(char c) { return startsWord(c) || isDigit(c); }

constexpr std::string_view symbols[] = {"==", "!=", "<>", "<=", ">=", "=<", "=>", "&&", "||", "<<", ">>",
                                        "**", "=",  "<",  ">",  "!",  "(",  ")",  "{",  "}",  ",",  ".",
                                        "[",  "]",  "&",  "|",  "^",  "~",  "+",  "-",  "*",  "/"};

class Lexer {
public:
    Lexer(std::string_view format, List const& arguments) : format_(format), arguments_(arguments) {}

    bool run() {
        while (skipBlanks()) {
            started_ = at_;
            if (!next()) return false;
        }
        started_ = at_;
        if (taken_ < arguments_.size()) return fail("more arguments are given than the format takes");
        add(Kind::End, {});
        return true;
    }

    std::vector<PredicateToken> tokens;
    std::string problem;
    std::size_t position() const { return started_; }

private:
    char current() const { return at_ < format_.size() ? format_[at_] : '\0'; }
    char following() const { return at_ + 1 < format_.size() ? format_[at_ + 1] : '\0'; }
    bool fail(std::string text) {
        problem = std::move(text);
        return false;
    }
    bool add(Kind kind, std::string_view text, Value value = {}) {
        tokens.push_back({kind, std::string{text}, std::move(value), started_});
        return true;
    }
    bool skipBlanks() {
        while (isBlank(current())) ++at_;
        return at_ < format_.size();
    }

    bool next() {
        auto const c = current();
        if (c == '\'' || c == '"') return quoted(c);
        if (isDigit(c) || ((c == '-' || c == '+' || (c == '.' && !followsKey())) && isDigit(following()))) return number();
        if ((c == '-' || c == '+') && startsWord(following())) return signedInfinity(c == '-');
        if (startsWord(c)) return add(Kind::Word, word());
        if (c == '@' && startsWord(following())) return ++at_, add(Kind::Word, "@" + std::string{word()});
        if (c == '#' && startsWord(following())) return ++at_, add(Kind::Key, word());
        if (c == '$' && startsWord(following())) return ++at_, add(Kind::Variable, word());
        if (c == '%') return argument();
        return symbol();
    }

    bool followsKey() const { return !tokens.empty() && (tokens.back().kind == Kind::Word || tokens.back().kind == Kind::Path); }

    std::string_view word() {
        auto const from = at_;
        while (continuesWord(current())) ++at_;
        return format_.substr(from, at_ - from);
    }

    bool symbol() {
        for (auto const text : symbols) {
            if (!format_.substr(at_).starts_with(text)) continue;
            at_ += text.size();
            return add(Kind::Symbol, text);
        }
        return fail("this character has no meaning in a format");
    }

    bool quoted(char quote) {
        std::string text;
        for (++at_; at_ < format_.size() && current() != quote; ++at_) {
            if (current() == '\\' && at_ + 1 < format_.size()) {
                ++at_;
                text += current() == 'n' ? '\n' : current() == 't' ? '\t' : current();
            } else {
                text += current();
            }
        }
        if (at_ == format_.size()) return fail("this text has no closing quote");
        ++at_;
        return add(Kind::Constant, {}, text);
    }

    template <class Number> bool read(std::string_view text, int base = 10) {
        Number value{};
        std::from_chars_result result{};
        if constexpr (std::is_integral_v<Number>)
            result = std::from_chars(text.data(), text.data() + text.size(), value, base);
        else
            result = std::from_chars(text.data(), text.data() + text.size(), value);
        return result.ec == std::errc{} && result.ptr == text.data() + text.size() && add(Kind::Constant, text, value);
    }

    bool number() {
        if (current() == '+') ++at_;
        auto const from = at_;
        if (current() == '-') ++at_;
        while (continuesWord(current()) || current() == '.' || isExponentSign()) ++at_;
        auto const text = format_.substr(from, at_ - from);
        if (text.starts_with("0x") || text.starts_with("0X")) {
            if (read<std::int64_t>(text.substr(2), 16)) return true;
        } else if (read<std::int64_t>(text) || read<double>(text)) {
            return true;
        }
        return fail("this is not a number");
    }
    bool signedInfinity(bool isNegative) {
        auto const sign = at_++;
        auto const text = word();
        if (isInfinity(text)) return add(Kind::Constant, format_.substr(sign, at_ - sign), isNegative ? -infinity : infinity);
        at_ = sign;
        return symbol();
    }
    bool isExponentSign() const {
        auto const before = format_[at_ - 1];
        return (current() == '-' || current() == '+') && (before == 'e' || before == 'E') && isDigit(following());
    }

    bool argument() {
        ++at_;
        while (std::string_view{"hlqLzjt"}.find(current()) != std::string_view::npos && current() != '\0') ++at_;
        auto const conversion = current();
        constexpr std::string_view numeric = "diuxXfFgGeEcDU";
        bool const isNumeric = numeric.find(conversion) != numeric.npos && conversion != '\0';
        if (!isNumeric && conversion != '@' && conversion != 'K' && conversion != 's')
            return fail("after % a format has @, K, or a letter for a number");
        ++at_;
        if (taken_ == arguments_.size()) return fail("the argument for this is missing");
        auto const& value = arguments_[taken_++];
        if (conversion == 'K')
            return value.isText() && !value.text().empty() ? add(Kind::Path, value.text()) : fail("%K takes a key path as text");
        if (isNumeric && !value.isNumber()) return fail("this takes a number");
        return add(Kind::Constant, {}, value);
    }

    static constexpr auto infinity = std::numeric_limits<double>::infinity();
    std::string_view format_;
    List const& arguments_;
    std::size_t at_ = 0, started_ = 0, taken_ = 0;
};

} // namespace

std::vector<PredicateToken> predicateTokens(std::string_view format, List const& arguments, std::string& problem,
                                            std::size_t& at) {
    Lexer lexer{format, arguments};
    if (lexer.run()) return std::move(lexer.tokens);
    problem = lexer.problem;
    at = lexer.position();
    return {};
}

} // namespace Tessarin
