#include "Tessarin/platform/foundation/predicates/KeyPath.h"

#include "Tessarin/platform/runtime/Fatal.h"
#include "Tessarin/platform/runtime/NSObject.h"
#include "Tessarin/platform/runtime/NestingPrivate.h"

#include <algorithm>

namespace Tessarin {
namespace {

using Kind = Value::Kind;
using Components = std::span<std::string const>;

bool isCollection(Value const& value) { return value.kind() == Kind::List || value.kind() == Kind::Set; }

char const* nameOf(Kind kind) {
    constexpr char const* names[] = {"value", "Boolean", "number", "number", "number", "date", "text",       "UUID",
                                     "data",  "URL",     "number", "object", "list",   "set",  "dictionary", "dictionary"};
    return names[static_cast<std::size_t>(kind)];
}

[[noreturn]] void unknownKey(Value const& value, std::string_view key) {
    auto const name =
        value.kind() == Kind::Object ? value.object()->objectClass().name() : std::string{"the "} + nameOf(value.kind());
    fatal(name + " " + value.description() + " is not key value coding-compliant for the key \"" + std::string{key} + "\"");
}

/// What an aggregate behind the members of a collection speaks of: all they lead to, or what each of them leads to.
enum class Aggregates { OfAll, OfEach };

Value followed(Value const& value, Components path, Aggregates aggregates = Aggregates::OfAll);

Value valueForKey(Value const& value, std::string const& key) {
    switch (value.kind()) {
    case Kind::Object: return key == "SELF" ? value : value.object()->valueForKey(key);
    case Kind::Dictionary: return value.dictionary()[key];
    case Kind::ValueDictionary: {
        auto const found = value.valueDictionary().find(Value(key));
        return found == value.valueDictionary().end() ? Value() : found->second;
    }
    default: unknownKey(value, key);
    }
}

std::size_t memberCount(Value const& value) {
    switch (value.kind()) {
    case Kind::List: return value.list().size();
    case Kind::Set: return value.set().size();
    case Kind::Dictionary: return value.dictionary().size();
    case Kind::ValueDictionary: return value.valueDictionary().size();
    default: unknownKey(value, "@count");
    }
}

Value sum(Value const& members, bool average) {
    double total = 0;
    std::int64_t whole = 0, count = 0;
    bool allWhole = true;
    forEachMember(members, [&](Value const& member) {
        allWhole = allWhole && (member.kind() == Kind::Integer || member.kind() == Kind::Boolean) &&
                   !__builtin_add_overflow(whole, member.integer(), &whole);
        total += member.number();
        ++count;
        return true;
    });
    if (average) return count ? Value(total / static_cast<double>(count)) : Value();
    return allWhole ? Value(whole) : Value(total);
}

bool hasOrder(Kind kind) { return kind < Kind::Object; }

/// Of what has an order; the first of several objects would be anybody.
Value extreme(Value const& members, std::partial_ordering wanted) {
    Value best;
    forEachMember(members, [&](Value const& member) {
        if (!hasOrder(member.kind())) return true;
        if (best.isAbsent() || compareValues(member, best) == wanted) best = member;
        return true;
    });
    return best;
}

/// "@avg" of the members' values at the end of the rest of the path.
Value aggregated(Value const& value, Components path) {
    auto const& name = path.front();
    if (path.size() > deepestLevel) unknownKey(value, name); // each of them takes some of the stack
    if (name == "@count") return static_cast<std::int64_t>(memberCount(value));
    if (!isCollection(value)) unknownKey(value, name);
    auto const members = followed(value, path.subspan(1));
    if (name == "@sum") return sum(members, false);
    if (name == "@avg") return sum(members, true);
    if (name == "@min") return extreme(members, std::partial_ordering::less);
    if (name == "@max") return extreme(members, std::partial_ordering::greater);
    unknownKey(value, name);
}

Value followed(Value const& start, Components path, Aggregates aggregates) {
    Value value = start;
    for (; !path.empty() && !value.isAbsent(); path = path.subspan(1)) {
        if (path.front().starts_with('@')) return aggregated(value, path);
        if (!isCollection(value)) {
            value = valueForKey(value, path.front());
            continue;
        }
        List members;
        if (aggregates == Aggregates::OfEach && path.size() > 1 && path[1].starts_with('@')) {
            bool const haveCollections = forEachMember(value, [&](Value const& member) {
                auto const own = valueForKey(member, path.front());
                members.push_back(own.isAbsent() || isCollection(own) ? followed(own, path.subspan(1)) : Value());
                return own.isAbsent() || isCollection(own);
            });
            if (haveCollections) return members;
            members.clear(); // single values: the aggregate is of them all
        }
        forEachMember(value, [&](Value const& member) {
            return forEachMember(valueForKey(member, path.front()), [&](Value const& found) {
                members.push_back(found);
                return true;
            });
        });
        value = std::move(members);
    }
    return value;
}

} // namespace

KeyPath::KeyPath(std::string_view text) : text_(text) {
    while (!text.empty()) {
        auto const end = std::min(text.find('.'), text.size());
        components_.emplace_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
}

Value KeyPath::valueFrom(Value const& object) const { return followed(object, components_); }

Value KeyPath::memberValuesFrom(Value const& object) const { return followed(object, components_, Aggregates::OfEach); }

Value valueForKeyPath(Value const& object, std::string_view path) { return KeyPath{path}.valueFrom(object); }

namespace {

bool forEachMemberAt(std::size_t level, Value const& value, FunctionRef<bool(Value const&)> each) {
    auto const one = [&](Value const& member) { return forEachMemberAt(level + 1, member, each); };
    if (level > deepestLevel) return each(value);
    switch (value.kind()) {
    case Kind::Absent: return true;
    case Kind::List: return std::ranges::all_of(value.list(), one);
    case Kind::Set: return std::ranges::all_of(value.set(), one);
    default: return each(value);
    }
}

} // namespace

bool forEachMember(Value const& value, FunctionRef<bool(Value const&)> each) { return forEachMemberAt(0, value, each); }

std::span<std::string const> KeyPath::components() const noexcept { return components_; }

} // namespace Tessarin
