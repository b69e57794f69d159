#pragma once
#include "Tessarin/platform/foundation/predicates/KeyPath.h"
#include "Tessarin/platform/runtime/NSObject.h"

namespace Tessarin {

/// How texts are ordered.
enum class TextComparison {
    Bytes,                   // as `<` in a predicate
    CaseInsensitive,         // folded, then by bytes
    Localized,               // as the user's language sorts
    LocalizedCaseInsensitive,
    LocalizedStandard        // as lists of files show: "2" before "10"
};

/// The order of two texts. Localized ones follow LC_ALL, LC_COLLATE or LANG as they were when first asked. Any thread.
TESSARIN_API std::strong_ordering compareTexts(std::string_view a, std::string_view b, TextComparison comparison);

struct SortOptions {
    bool ascending = true;
    TextComparison comparison = TextComparison::Bytes;
};

/// The order of objects by the value at the end of a key path. Absent values come first, values of
/// kinds that cannot be compared stand apart by kind. Immutable; any thread.
///
///     auto byYear = NSSortDescriptor::sortDescriptorWithKey("year", {.ascending = false});
class TESSARIN_API NSSortDescriptor : public NSObject {
public:
    static Ref<NSSortDescriptor> sortDescriptorWithKey(std::string_view keyPath, SortOptions options = {});

    std::string const& key() const noexcept { return path_.text(); }
    KeyPath const& keyPath() const noexcept { return path_; }
    bool ascending() const noexcept { return options_.ascending; }
    TextComparison comparison() const noexcept { return options_.comparison; }
    Ref<NSSortDescriptor> reversedSortDescriptor() const;

    std::weak_ordering compareObjects(Value const& a, Value const& b) const;
    /// The order of two values that the key path led to.
    std::weak_ordering compareKeys(Value const& a, Value const& b) const;

    std::string description() const override;
    bool isEqual(NSObject const& other) const override;
    std::size_t hash() const override { return std::hash<std::string>{}(key()); }

    using NSObject::init;
    virtual void init(std::string_view keyPath, SortOptions options);

protected:
    NSSortDescriptor() = default;

private:
    KeyPath path_; // both constant after init
    SortOptions options_;
};

/// `objects` in the order of the first descriptor, those it finds equal in the order of the next; equal ones keep their order.
TESSARIN_API List sortedArrayUsingDescriptors(List objects, std::span<Ref<NSSortDescriptor> const> descriptors);

} // namespace Tessarin
