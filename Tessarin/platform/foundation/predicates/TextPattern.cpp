#include "Tessarin/platform/foundation/predicates/TextPattern.h"

#include <atomic>
#include <unicode/regex.h>

namespace Tessarin {
namespace {

constexpr std::int32_t stepLimit = 1000; // in units of the matcher, each about 10,000 steps

icu::UnicodeString wide(std::string_view text) {
    return icu::UnicodeString::fromUTF8({text.data(), static_cast<std::int32_t>(text.size())});
}

/// Length of the code point that starts at `at`.
std::size_t step(std::string_view text, std::size_t at) noexcept {
    std::size_t next = at + 1;
    while (next < text.size() && (static_cast<unsigned char>(text[next]) & 0xC0) == 0x80) ++next;
    return next - at;
}

} // namespace

struct TextPattern::Impl {
    std::unique_ptr<icu::RegexPattern> pattern;
    TextOptions options = TextOptions::None; // for the text only: the pattern knows its case itself
    std::atomic<icu::RegexMatcher*> spare{nullptr}; // one is kept, making a matcher costs a microsecond
    ~Impl() { delete spare.load(); }
};

TextPattern::~TextPattern() = default;

Ref<TextPattern const> TextPattern::compile(std::string_view expression, TextOptions options) {
    auto impl = std::make_unique<Impl>();
    impl->options = has(options, TextOptions::DiacriticInsensitive) ? TextOptions::DiacriticInsensitive : TextOptions::None;
    UErrorCode status = U_ZERO_ERROR;
    UParseError where{};
    auto const flags = has(options, TextOptions::CaseInsensitive) ? std::uint32_t{UREGEX_CASE_INSENSITIVE} : 0U;
    impl->pattern.reset(icu::RegexPattern::compile(wide(foldedText(expression, impl->options)), flags, where, status));
    if (U_FAILURE(status)) return nullptr;
    Ref<TextPattern> result{new TextPattern};
    result->impl_ = std::move(impl);
    return result;
}

bool TextPattern::matchesWhole(std::string_view text) const {
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::RegexMatcher> matcher{impl_->spare.exchange(nullptr, std::memory_order_acquire)};
    if (!matcher) {
        matcher.reset(impl_->pattern->matcher(status));
        if (U_FAILURE(status)) return false;
        matcher->setTimeLimit(stepLimit, status);
    }
    auto const input = wide(FoldedText{text, impl_->options}.view());
    matcher->reset(input);
    bool const matched = matcher->matches(status) && U_SUCCESS(status);
    static auto const& nothing = *new icu::UnicodeString;
    matcher->reset(nothing); // it must not keep the address of `input`
    delete impl_->spare.exchange(matcher.release(), std::memory_order_acq_rel);
    return matched;
}

bool matchesWildcards(std::string_view text, std::string_view pattern) noexcept {
    std::size_t at = 0, in = 0;
    std::size_t star = pattern.npos, resume = 0; // where to go on when what follows the last star does not fit
    while (at < text.size()) {
        bool const more = in < pattern.size();
        if (more && pattern[in] == '*') {
            star = ++in;
            resume = at;
        } else if (more && pattern[in] == '?') {
            ++in;
            at += step(text, at);
        } else if (auto const literal = more && pattern[in] == '\\' && in + 1 < pattern.size() ? in + 1 : in;
                   more && pattern[literal] == text[at]) {
            in = literal + 1;
            ++at;
        } else if (star != pattern.npos) {
            in = star;
            at = resume += step(text, resume);
        } else {
            return false;
        }
    }
    while (in < pattern.size() && pattern[in] == '*') ++in;
    return in == pattern.size();
}

} // namespace Tessarin
