#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/runtime/FunctionRef.h"
#include "Tessarin/platform/runtime/Value.h"
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Tessarin {

/// A dotted path of keys, taken apart once: "author.name", "books.@count", "books.@avg.rating". Immutable; any thread.
class TESSARIN_API KeyPath {
public:
    KeyPath() = default;
    /// An empty text is the path that leads nowhere: to the object itself.
    explicit KeyPath(std::string_view text);

    std::string const& text() const noexcept { return text_; }
    std::span<std::string const> components() const noexcept;
    bool isEmpty() const noexcept { return components_.empty(); }

    /// The value at the end of the path. Objects answer by `valueForKey`, dictionaries by key; through a list or a set the
    /// path leads to the list of what each member answers, nested ones flattened. Through an absent value it leads to an
    /// absent value. @count, @sum, @avg, @min and @max stand for what they say of the members; absent ones are left out.
    /// Fatal where an object does not know its key.
    Value valueFrom(Value const& object) const;
    /// The same as ANY and ALL mean it: an aggregate behind the members of a collection speaks of each of them, so that
    /// "children.tags.@count" leads to a list with the count of each child.
    Value memberValuesFrom(Value const& object) const;

    friend bool operator==(KeyPath const& a, KeyPath const& b) { return a.text_ == b.text_; }

private:
    std::string text_;
    std::vector<std::string> components_;
};

/// `KeyPath(path).valueFrom(object)`.
TESSARIN_API Value valueForKeyPath(Value const& object, std::string_view path);

/// Calls `each` for every member of a list or set, and of lists and sets within; for any other value once, for an absent one
/// never. Ends early when `each` answers false; tells whether it ran to the end.
TESSARIN_API bool forEachMember(Value const& value, FunctionRef<bool(Value const&)> each);

} // namespace Tessarin
