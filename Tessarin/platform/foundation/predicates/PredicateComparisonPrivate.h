#pragma once
#include "Tessarin/platform/foundation/predicates/NSComparisonPredicate.h"
#include "Tessarin/platform/foundation/predicates/TextPattern.h"
#include "Tessarin/platform/runtime/TextHashPrivate.h"
#include <unordered_set>

namespace Tessarin {

/// Equality as predicates mean it: numbers and decimals by size, objects by what they stand for.
bool predicateEqual(Value const& a, Value const& b);

/// The members of the right side of IN, found by one hash look-up.
class PreparedMembers {
public:
    PreparedMembers(Value const& members, TextOptions options);
    bool contains(Value const& value) const;

private:
    struct ValueHash {
        std::size_t operator()(Value const& value) const noexcept;
    };
    struct ValueEqual {
        bool operator()(Value const& a, Value const& b) const { return predicateEqual(a, b); }
    };
    TextOptions options_;
    std::unordered_set<std::string, TextHash, std::equal_to<>> texts_; // folded
    std::unordered_set<Value, ValueHash, ValueEqual> others_;
};

/// One comparison of two values, without preparation. `options` folds both where they are texts.
bool compareForPredicate(NSPredicateOperatorType type, TextOptions options, Value const& left, Value const& right);
/// The same of two texts that are folded already, for the operators on texts but MATCHES.
bool compareFoldedTexts(NSPredicateOperatorType type, std::string_view left, std::string_view right);

} // namespace Tessarin
