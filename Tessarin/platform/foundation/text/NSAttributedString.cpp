#include "Tessarin/platform/foundation/text/NSAttributedString.h"

#include "Tessarin/platform/foundation/text/ClustersPrivate.h"
#include "Tessarin/platform/runtime/Text.h"

#include <algorithm>
#include <ostream>

namespace Tessarin {
namespace {

bool isInside(std::string_view text, std::size_t at) {
    return at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80;
}

/// The beginning of the code point that a byte belongs to: at most three bytes before.
std::size_t beginningOf(std::string_view text, std::size_t at) {
    at = std::min(at, text.size());
    auto from = at;
    while (isInside(text, from) && from > 0 && at - from < 3) --from;
    auto const lead = from < text.size() ? static_cast<unsigned char>(text[from]) : 0U;
    auto const size = lead >= 0xF0 ? 4U : lead >= 0xE0 ? 3U : lead >= 0xC2 ? 2U : 1U;
    return from + size > at ? from : at; // stray bytes stand for themselves
}

} // namespace

NSAttributedString::NSAttributedString(std::string_view text, TextAttributes attributes) : text_(text) {
    add(text.size(), attributes);
}

/// Attributes of the next bytes, behind all runs.
void NSAttributedString::add(std::size_t size, TextAttributes const& attributes) {
    if (size == 0) return;
    auto const from = runs_.empty() ? 0 : runs_.back().to;
    if (!runs_.empty() && runs_.back().attributes == attributes)
        runs_.back().to += size;
    else
        runs_.push_back({from, from + size, attributes});
}

TextAttributes NSAttributedString::attributesAt(std::size_t offset) const {
    auto const run = std::ranges::upper_bound(runs_, offset, {}, &Run::to);
    return run == runs_.end() ? TextAttributes{} : run->attributes;
}

void NSAttributedString::append(NSAttributedString const& other) {
    if (&other == this) return append(NSAttributedString{other});
    text_ += other.text_;
    for (auto const& run : other.runs_) add(run.to - run.from, run.attributes);
}

void NSAttributedString::changeAttributes(std::size_t from, std::size_t to, FunctionRef<void(TextAttributes&)> change) {
    from = beginningOf(text_, from);
    to = beginningOf(text_, to);
    if (from >= to) return;
    NSAttributedString made; // the caller's block may throw
    for (auto const& run : runs_) {
        auto const first = std::clamp(from, run.from, run.to), last = std::clamp(to, run.from, run.to);
        made.add(first - run.from, run.attributes);
        if (first < last) {
            auto changed = run.attributes;
            change(changed);
            made.add(last - first, changed);
        }
        made.add(run.to - last, run.attributes);
    }
    runs_ = std::move(made.runs_);
}

NSAttributedString NSAttributedString::sub(std::ptrdiff_t from, std::ptrdiff_t to) const {
    auto const size = static_cast<std::ptrdiff_t>(from < 0 || to < 0 ? clusters::count(text_) : 0);
    auto const indexOf = [&](std::ptrdiff_t index) {
        return static_cast<std::size_t>(std::max<std::ptrdiff_t>(index < 0 ? index + size : index, 0));
    };
    auto const first = clusters::offsetOf(text_, indexOf(from));
    auto const last = std::max(first, clusters::offsetOf(text_, indexOf(to)));
    NSAttributedString part;
    part.text_ = text_.substr(first, last - first);
    for (auto run = std::ranges::upper_bound(runs_, first, {}, &Run::to); run != runs_.end() && run->from < last; ++run)
        part.add(std::min(run->to, last) - std::max(run->from, first), run->attributes);
    return part;
}

std::ostream& operator<<(std::ostream& out, NSAttributedString const& text) { return out << text.string(); }

} // namespace Tessarin
