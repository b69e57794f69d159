// Equality of values, however deep they are nested.
#include "Tessarin/platform/runtime/ValueEqualityPrivate.h"

#include "Tessarin/platform/runtime/Dictionary.h"
#include "Tessarin/platform/runtime/NSObject.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace Tessarin {
namespace {

using Kind = Value::Kind;

bool isWhole(Value const& value) { return value.kind() == Kind::Integer || value.kind() == Kind::Boolean; }

bool equalObjects(Ref<NSObject> const& a, Ref<NSObject> const& b) { return a == b || a->isEqual(*b); }

Value const& keyOf(Value const& member) { return member; }
Value const& keyOf(std::pair<Value const, Value> const& entry) { return entry.first; }

bool isCollection(Value const& value) { return value.kind() > Kind::Object; }

/// Where not both are collections.
bool isSameLeaf(Value const& a, Value const& b) {
    if (a.isNumber() && b.isNumber()) return compareNumbers(a, b) == 0;
    if (a.kind() != b.kind()) return false;
    switch (a.kind()) {
    case Kind::Absent: return true;
    case Kind::Date: return a.dateSeconds() == b.dateSeconds();
    case Kind::Text: return a.text() == b.text();
    case Kind::UUID: return a.uuidBytes() == b.uuidBytes();
    case Kind::Data: return std::ranges::equal(a.bytes(), b.bytes());
    case Kind::URL: return a.urlText() == b.urlText();
    case Kind::Decimal: return a.decimal() == b.decimal();
    case Kind::Object: return equalObjects(a.object(), b.object());
    default: return false;
    }
}

template <class Inside> bool isSameDictionary(Dictionary const& a, Dictionary const& b, Inside const& inside) {
    if (a.size() != b.size()) return false;
    for (auto const& [key, value] : a) {
        auto const* other = b.find(key);
        if (!other || !inside(value, *other)) return false;
    }
    return true;
}

/// Whether a set has the member, or a dictionary the entry. What lies in both at corresponding places is left to `inside`. Of several
/// collections with one hash any may be meant: there the answer of `chosen` counts.
template <class Member, class Members, class Inside, class Chosen>
bool corresponds(Value const& key, Member const& member, Members const& others, Inside const& inside, Chosen const& chosen) {
    auto const valuesCorrespond = [&](Member const& other) {
        if constexpr (std::same_as<Member, Value>)
            return true;
        else
            return inside(member.second, other.second);
    };
    if (!isCollection(key)) {
        auto const found = others.find(key);
        return found != others.end() && valuesCorrespond(*found);
    }
    auto const bucket = others.bucket(key);
    auto const mayBe = [&, hash = key.hash()](Value const& other) { return isCollection(other) && other.hash() == hash; };
    Member const* found = nullptr;
    bool isOnly = true;
    for (auto at = others.begin(bucket); at != others.end(bucket); ++at)
        if (mayBe(keyOf(*at))) isOnly = !std::exchange(found, &*at);
    if (!found) return false;
    if (isOnly) return inside(key, keyOf(*found)) && valuesCorrespond(*found);
    for (auto at = others.begin(bucket); at != others.end(bucket); ++at)
        if (mayBe(keyOf(*at)) && chosen(key, keyOf(*at))) return valuesCorrespond(*at);
    return false;
}

template <class Members, class Inside, class Chosen>
bool allCorrespond(Members const& some, Members const& others, Inside const& inside, Chosen const& chosen) {
    return some.size() == others.size() &&
           std::ranges::all_of(some, [&](auto const& each) { return corresponds(keyOf(each), each, others, inside, chosen); });
}

/// How two collections are compared, or what else they are.
template <class Inside, class Chosen> bool isSame(Value const& a, Value const& b, Inside const& inside, Chosen const& chosen) {
    if (a.kind() != b.kind()) return isSameLeaf(a, b);
    switch (a.kind()) {
    case Kind::List: return std::ranges::equal(a.list(), b.list(), inside);
    case Kind::Set: return allCorrespond(a.set(), b.set(), inside, chosen);
    case Kind::Dictionary: return isSameDictionary(a.dictionary(), b.dictionary(), inside);
    case Kind::ValueDictionary: return allCorrespond(a.valueDictionary(), b.valueDictionary(), inside, chosen);
    default: return isSameLeaf(a, b);
    }
}

constexpr std::size_t deepestRecursion = 100, deepestChoice = 4;

bool isSameAt(Value const& a, Value const& b, std::size_t level, std::size_t choices);

/// Beyond some levels pairs wait in a list instead of on the stack.
bool isSameDeep(Value const& a, Value const& b, std::size_t choices) {
    std::vector<std::pair<Value const*, Value const*>> pairs{{&a, &b}};
    auto const later = [&](Value const& x, Value const& y) {
        pairs.emplace_back(&x, &y);
        return true;
    };
    auto const chosen = [&](Value const& x, Value const& y) { return choices < deepestChoice && isSameAt(x, y, 0, choices + 1); };
    while (!pairs.empty()) {
        auto const [x, y] = pairs.back();
        pairs.pop_back();
        if (!isSame(*x, *y, later, chosen)) return false;
    }
    return true;
}

bool isSameAt(Value const& a, Value const& b, std::size_t level, std::size_t choices) {
    if (level == deepestRecursion) return isSameDeep(a, b, choices);
    auto const inside = [&](Value const& x, Value const& y) {
        return isCollection(x) && isCollection(y) ? isSameAt(x, y, level + 1, choices) : isSameLeaf(x, y);
    };
    return isSame(a, b, inside, inside);
}

} // namespace

std::partial_ordering compareNumbers(Value const& a, Value const& b) {
    if (isWhole(a) && isWhole(b)) return a.integer() <=> b.integer();
    auto const exact = [](Value const& v) -> long double { // a long double holds 64-bit integers and doubles alike
        if (isWhole(v)) return static_cast<long double>(v.integer());
        return v.number();
    };
    return exact(a) <=> exact(b);
}

bool operator==(Value const& a, Value const& b) {
    return isCollection(a) && isCollection(b) ? isSameAt(a, b, 0, 0) : isSameLeaf(a, b);
}

} // namespace Tessarin
