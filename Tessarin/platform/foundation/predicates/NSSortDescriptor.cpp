#include "Tessarin/platform/foundation/predicates/NSSortDescriptor.h"

#include "Tessarin/platform/foundation/predicates/TextFolding.h"
#include "Tessarin/platform/foundation/text/LanguagePrivate.h"

#include <algorithm>
#include <unicode/coll.h>

namespace Tessarin {
namespace {

std::unique_ptr<icu::Collator const> madeCollator(TextComparison comparison) {
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::Collator> collator{
        icu::Collator::createInstance(icu::Locale{language::localeOf("LC_COLLATE").c_str()}, status)};
    if (U_FAILURE(status)) return nullptr;
    if (comparison == TextComparison::LocalizedCaseInsensitive) collator->setStrength(icu::Collator::SECONDARY);
    if (comparison == TextComparison::LocalizedStandard) collator->setAttribute(UCOL_NUMERIC_COLLATION, UCOL_ON, status);
    return collator;
}

/// Collators are safe on any thread as long as nobody changes them.
icu::Collator const* collator(TextComparison comparison) {
    static auto const plain = madeCollator(TextComparison::Localized);
    static auto const caseInsensitive = madeCollator(TextComparison::LocalizedCaseInsensitive);
    static auto const standard = madeCollator(TextComparison::LocalizedStandard);
    if (comparison == TextComparison::LocalizedCaseInsensitive) return caseInsensitive.get();
    return comparison == TextComparison::LocalizedStandard ? standard.get() : plain.get();
}

icu::StringPiece piece(std::string_view text) { return {text.data(), static_cast<std::int32_t>(text.size())}; }

} // namespace

std::strong_ordering compareTexts(std::string_view a, std::string_view b, TextComparison comparison) {
    if (comparison == TextComparison::CaseInsensitive)
        return FoldedText{a, TextOptions::CaseInsensitive}.view() <=> FoldedText{b, TextOptions::CaseInsensitive}.view();
    auto const* rules = comparison == TextComparison::Bytes ? nullptr : collator(comparison);
    if (!rules || std::max(a.size(), b.size()) > INT32_MAX) return a <=> b; // ICU counts in 32 bits
    UErrorCode status = U_ZERO_ERROR;
    return static_cast<int>(rules->compareUTF8(piece(a), piece(b), status)) <=> 0;
}

void NSSortDescriptor::init(std::string_view keyPath, SortOptions options) {
    NSObject::init();
    path_ = KeyPath{keyPath};
    options_ = options;
}

Ref<NSSortDescriptor> NSSortDescriptor::sortDescriptorWithKey(std::string_view keyPath, SortOptions options) {
    return make<NSSortDescriptor>(keyPath, options);
}

Ref<NSSortDescriptor> NSSortDescriptor::reversedSortDescriptor() const {
    return make<NSSortDescriptor>(key(), SortOptions{.ascending = !ascending(), .comparison = comparison()});
}

std::weak_ordering NSSortDescriptor::compareObjects(Value const& a, Value const& b) const {
    return compareKeys(path_.valueFrom(a), path_.valueFrom(b));
}

std::weak_ordering NSSortDescriptor::compareKeys(Value const& a, Value const& b) const {
    auto order =
        a.isText() && b.isText() ? std::partial_ordering{compareTexts(a.text(), b.text(), comparison())} : compareValues(a, b);
    if (order == std::partial_ordering::unordered) order = a.kind() <=> b.kind(); // some order, so that sorting stays consistent
    if (order == 0) return std::weak_ordering::equivalent;
    return (order < 0) == ascending() ? std::weak_ordering::less : std::weak_ordering::greater;
}

std::string NSSortDescriptor::description() const { return key() + (ascending() ? " ascending" : " descending"); }

bool NSSortDescriptor::isEqual(NSObject const& object) const {
    auto const* other = dynamic_cast<NSSortDescriptor const*>(&object);
    return other && path_ == other->path_ && ascending() == other->ascending() && comparison() == other->comparison();
}

List sortedArrayUsingDescriptors(List objects, std::span<Ref<NSSortDescriptor> const> descriptors) {
    // The keys are asked for once per object, not once per comparison.
    struct Keyed {
        Value object;
        List keys;
    };
    std::vector<Keyed> keyed;
    keyed.reserve(objects.size());
    for (auto& object : objects) {
        List keys;
        for (auto const& descriptor : descriptors) keys.push_back(descriptor->keyPath().valueFrom(object));
        keyed.push_back({std::move(object), std::move(keys)});
    }
    std::ranges::stable_sort(keyed, [&](Keyed const& a, Keyed const& b) {
        for (std::size_t at = 0; at < descriptors.size(); ++at)
            if (auto const order = descriptors[at]->compareKeys(a.keys[at], b.keys[at]); order != 0) return order < 0;
        return false;
    });
    std::ranges::transform(keyed, objects.begin(), [](Keyed& entry) { return std::move(entry.object); });
    return objects;
}

} // namespace Tessarin
