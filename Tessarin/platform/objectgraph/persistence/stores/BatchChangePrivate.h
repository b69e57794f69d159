#pragma once
#include "Tessarin/platform/objectgraph/persistence/history/ChangeOriginPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreQueryPrivate.h"
#include "Tessarin/platform/runtime/Value.h"
#include <optional>

namespace Tessarin {

/// The records that a batch request is about: those that a query finds, or some of its entity by key.
struct BatchTarget {
    StoreQuery query;
    std::optional<std::vector<RecordKey>> keys = {}; // in place of predicate, order, limit and offset; others are ignored
    enum class Names : std::uint8_t { Records, Runs, None } names = Names::Records; // in the outcome; None: their number will do
    Ref<ChangeOrigin const> origin = {}; // for the history
};

/// One property's new value, already checked against the model: a constant, a record, or what another attribute holds.
struct BatchAssignment {
    NSPropertyDescription const* property = nullptr;
    Value value = {}; // of an attribute
    RecordKey reference = 0; // of a to-one relationship; 0: none
    NSAttributeDescription const* source = nullptr; // of the same type; takes the place of `value`
};

/// Records of exactly one entity whose keys are neighbours.
struct RecordRun {
    NSEntityDescription const* entity;
    RecordKey first, last;
};

struct BatchOutcome {
    struct Record {
        NSEntityDescription const* entity; // its own
        RecordKey key;
    };
    std::vector<Record> records; // in any order; where they need not be named, perhaps none
    std::vector<RecordRun> runs; // in place of them, where that was asked for, by tree of entities and key
    std::size_t count = 0; // of records
    bool complete = true; // false: the store cannot find them itself and did nothing; ask again with keys
};

/// Enters the next key of a tree of entities.
inline void addToRuns(std::vector<RecordRun>& runs, NSEntityDescription const& entity, RecordKey key) {
    if (!runs.empty() && runs.back().entity == &entity && runs.back().last + 1 == key)
        runs.back().last = key;
    else
        runs.push_back({&entity, key, key});
}

/// The error for a record that a to-one relationship was to lead to.
TESSARIN_API Ref<NSError> missingDestination(NSRelationshipDescription const& relationship, RecordKey key);

} // namespace Tessarin
