#include "Tessarin/platform/foundation/preferences/DefaultsScanPrivate.h"

#include <algorithm>
#include <string>

namespace Tessarin::defaults {
namespace {

constexpr std::size_t deepest = 256; // brackets and dots of keys within each other: each is a level that the parser nests

std::size_t lineEnd(std::string_view text, std::size_t at) { return std::min(text.find('\n', at), text.size()); }
std::size_t behindLine(std::string_view text, std::size_t at) { return std::min(lineEnd(text, at) + 1, text.size()); }

bool isBlank(char c) { return c == ' ' || c == '\t'; }
bool isQuote(char c) { return c == '"' || c == '\''; }
bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; }
bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isBare(char c) { return isLetter(c) || isDigit(c) || c == '-'; }

std::size_t behindBlanks(std::string_view text, std::size_t at) {
    while (at < text.size() && isBlank(text[at])) ++at;
    return at;
}

/// Whether it begins like `form`, in which a zero stands for any digit.
bool looksLike(std::string_view text, std::string_view form) {
    return text.size() >= form.size() && std::ranges::equal(form, text.substr(0, form.size()), [](char wanted, char c) {
               return wanted == '0' ? isDigit(c) : wanted == c;
           });
}

bool isLongQuote(std::string_view text, std::size_t at) {
    auto const three = text.substr(at, 3);
    return three == R"(""")" || three == "'''";
}

/// Behind a key of one or more parts, and the blanks that follow; `at` itself when there is none.
std::size_t behindKey(std::string_view text, std::size_t const at) {
    for (auto next = at;;) {
        auto const part = next;
        if (next < text.size() && isQuote(text[next]) && !isLongQuote(text, next))
            next = behindString(text, next);
        else
            while (next < text.size() && isBare(text[next])) ++next;
        if (next == part) return at;
        next = behindBlanks(text, next);
        if (next == text.size() || text[next] != '.') return next;
        next = behindBlanks(text, next + 1);
    }
}

bool looksLikeKey(std::string_view text, std::size_t at) {
    auto const begin = behindBlanks(text, at), end = behindKey(text, begin);
    return end > begin && end < text.size() && text[end] == '=';
}

/// A name in brackets that is alone on its line. One that is a number or a text is more likely an element of a list.
bool looksLikeSection(std::string_view text, std::size_t at) {
    at = behindBlanks(text, at);
    int brackets = 0;
    while (at < text.size() && text[at] == '[' && brackets < 2) ++at, ++brackets;
    at = behindBlanks(text, at);
    if (brackets == 0 || at == text.size() || !isLetter(text[at])) return false;
    for (at = behindKey(text, at); brackets > 0 && at < text.size() && text[at] == ']'; --brackets) ++at;
    at = behindBlanks(text, at);
    return brackets == 0 && (at == text.size() || text[at] == '\n' || text[at] == '\r' || text[at] == '#');
}

class Scanner {
public:
    Scanner(std::string_view text, std::size_t at)
        : text_(text), at_(at), isSection_(at < text.size() && text[at] == '['), found_{at, at} {}

    Extent run() {
        if (isSection_) requireName();
        while (at_ < text_.size() && !(text_[at_] == '\n' && endsHere())) step(text_[at_]);
        found_.isClosed = found_.isClosed && (isSection_ || open_ == 0);
        found_.end = std::min(at_ + 1, text_.size());
        return found_;
    }

private:
    void refuse(char const* problem) {
        if (!found_.problem) found_.problem = problem, found_.problemAt = at_;
    }

    void requireName() {
        auto const second = at_ + 1 < text_.size() && text_[at_ + 1] == '[' ? at_ + 2 : at_ + 1;
        auto const name = behindBlanks(text_, second);
        if (name == text_.size() || !(isBare(text_[name]) || isQuote(text_[name]))) refuse("a section without a name");
    }

    bool endsHere() {
        if (isSection_ || open_ == 0) return true;
        if (!looksLikeKey(text_, at_ + 1)) return false;
        found_.isClosed = false;
        return true;
    }

    void step(char const c) {
        if (c == '#') {
            at_ = lineEnd(text_, at_);
        } else if (isBlank(c) || c == '\r' || c == '\n') {
            if (c == '\r' && text_.substr(at_ + 1, 1) != "\n") refuse("a carriage return without a line feed");
            if (c == '\n') last_ = c;
            ++at_;
        } else {
            isQuote(c) ? passText() : pass(c);
            last_ = c;
            found_.valueEnd = at_;
        }
    }

    void passText() {
        if (std::string_view{"\n=[,{."}.find(last_) == std::string_view::npos) refuse("a quote in the middle of a value");
        auto const begin = at_;
        at_ = behindString(text_, begin);
        if (!isLongQuote(text_, begin)) return;
        auto const quotes = text_.substr(begin, 3);
        auto const isEnded = at_ >= begin + 6 && text_.substr(begin, at_ - begin).ends_with(quotes);
        found_.isClosed = found_.isClosed && isEnded;
        auto const lastLine = text_.rfind('\n', at_ - 1);
        if (!isEnded || lastLine == text_.npos || lastLine < begin || !looksLikeKey(text_, lastLine + 1)) return;
        auto const value = behindBlanks(text_, behindKey(text_, behindBlanks(text_, lastLine + 1)) + 1);
        found_.isDoubtful = found_.isDoubtful || value + 3 == at_;
    }

    void pass(char const c) {
        if (static_cast<unsigned char>(c) >= 0x80) refuse("a character outside ASCII that is in no quotes");
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) refuse("a control character");
        if (isDigit(c)) requireTimeBehindDate();
        if (c == '.') ++dots_;
        if (c == '=') nesting_.append(dots_, '.');
        if (c == '[' || c == '{') {
            nesting_ += c;
            ++open_;
        }
        if (c == ',' || c == ']' || c == '}') close(c);
        if (c == '=' || c == ',' || c == '{' || c == '[') dots_ = 0;
        if (nesting_.size() + dots_ > deepest) refuse("too many levels");
        ++at_;
    }

    /// A value that begins with a digit ends at the next blank, bracket or comma, unless it is a date and its time follows.
    void requireTimeBehindDate() {
        bool const isInList =
            !isSection_ && nesting_.ends_with('[') && std::string_view{"\n[,"}.find(last_) != std::string_view::npos;
        if (last_ != '=' && !isInList) return;
        auto const value = text_.substr(at_);
        auto const size = std::min(value.find_first_of(" \t\r\n,]}#"), value.size());
        bool const isDate = looksLike(value, "0000-00-00"), isWord = isDate && size > 10;
        bool const goesOn = isWord ? value[10] == 'T' || value[10] == 't'
                                   : size + 1 < value.size() && value[size] == ' ' && isDigit(value[size + 1]);
        if (goesOn && !(isDate && looksLike(value.substr(11), "00:"))) refuse("a date without its time");
    }

    /// What ends with a comma or a bracket: the levels of a dotted key, the innermost bracket.
    void close(char const c) {
        while (nesting_.ends_with('.')) nesting_.pop_back();
        if (c == ',') return;
        if (!nesting_.ends_with(c == ']' ? '[' : '{')) return refuse("a bracket that closes nothing");
        nesting_.pop_back();
        --open_;
    }

    std::string_view const text_;
    std::size_t at_;
    bool const isSection_;
    Extent found_;
    std::string nesting_;   // the open brackets and the dots of the keys before them
    std::size_t dots_ = 0;  // of the key that is being read
    int open_ = 0;          // brackets
    char last_ = '\n';      // that was no blank
};

} // namespace

std::size_t behindTrivia(std::string_view text, std::size_t at) {
    while (at < text.size() && (isBlank(text[at]) || text[at] == '\r' || text[at] == '\n' || text[at] == '#'))
        at = text[at] == '#' ? lineEnd(text, at) : at + 1;
    return at;
}

std::size_t behindString(std::string_view text, std::size_t at) {
    char const quote = text[at];
    bool const isLong = isLongQuote(text, at);
    auto const closing = text.substr(at, isLong ? 3 : 1);
    for (at += closing.size(); at < text.size(); ++at) {
        if (text[at] == '\\' && quote == '"' && (isLong || text.substr(at + 1, 1) != "\n")) {
            ++at;
        } else if (text.substr(at).starts_with(closing)) {
            at += closing.size();
            while (isLong && at < text.size() && text[at] == quote) ++at; // up to two quotes may stand before the closing ones
            return at;
        } else if (!isLong && text[at] == '\n') { // only in ill-formed text
            return at;
        }
    }
    return text.size();
}

Extent extentFrom(std::string_view text, std::size_t at) { return Scanner(text, at).run(); }

bool looksLikeStart(std::string_view text, std::size_t at) { return looksLikeKey(text, at) || looksLikeSection(text, at); }

std::size_t nextLikelyStart(std::string_view text, std::size_t at) {
    do at = behindLine(text, at);
    while (at < text.size() && !looksLikeStart(text, at));
    return at;
}

} // namespace Tessarin::defaults
