#pragma once
#include "Tessarin/platform/objectgraph/persistence/stores/StoreQueryPrivate.h"
#include "Tessarin/platform/runtime/Value.h"
#include <optional>

namespace Tessarin {

/// The records that a batch request is about: those that a query finds, or some of its entity by key.
struct BatchTarget {
    StoreQuery query;
    std::optional<std::vector<RecordKey>> keys = {}; // in place of predicate, order, limit and offset; others are ignored
    bool namesRecords = true; // false: their number will do
};

/// One property's new value, already checked against the model: a constant, a record, or what another attribute holds.
struct BatchAssignment {
    NSPropertyDescription const* property = nullptr;
    Value value = {};                               // of an attribute
    RecordKey reference = 0;                        // of a to-one relationship; 0: none
    NSAttributeDescription const* source = nullptr; // of the same type; takes the place of `value`
};

struct BatchOutcome {
    struct Record {
        NSEntityDescription const* entity; // its own
        RecordKey key;
    };
    std::vector<Record> records; // in any order; where they need not be named, perhaps none
    std::size_t count = 0;       // of records
    bool complete = true;        // false: the store cannot find them itself and did nothing; ask again with keys
};

/// The error for a record that a to-one relationship was to lead to.
TESSARIN_API Ref<NSError> missingDestination(NSRelationshipDescription const& relationship, RecordKey key);

} // namespace Tessarin
