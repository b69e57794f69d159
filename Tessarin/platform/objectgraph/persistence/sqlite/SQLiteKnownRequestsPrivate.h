#pragma once
#include "Tessarin/platform/foundation/predicates/NSComparisonPredicate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteSchemaPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreQueryPrivate.h"
#include "Tessarin/platform/objectgraph/query/SQLOperandPrivate.h"
#include "Tessarin/platform/sqlite/Connection.h"
#include <array>
#include <span>
#include <string>
#include <vector>

namespace Tessarin {

/// How the rows of a request are read from its statement.
struct RequestReading {
    bool isCut = false;     // by limit and offset, the last parameters
    bool keysOnly = false;
    bool byKeys = false;    // keys and versions first
    bool isFed = false;     // by SQLiteRowFeed
    bool isInOrder = false; // else it is sorted by key afterwards
};

/// The last few shapes of requests that compare attributes with plain values, with their statements: a look-up like an earlier
/// one is only bound, not said in SQL again. A shape is everything that the text depends on, the kinds of the values included. It
/// belongs to one connection, whose schema stays as it is. Used by one thread at a time.
class SQLiteKnownRequests {
public:
    SQLiteKnownRequests(SQLiteSchema const& schema, SQLite::Connection& connection) : schema_(schema), connection_(connection) {}

    static constexpr std::size_t mostComparisons = 4;
    /// The comparisons of a request; none when it has others, or too many.
    struct Comparisons {
        std::array<NSComparisonPredicate const*, mostComparisons> list{};
        std::size_t count = 0;
    };
    static Comparisons comparisonsOf(StoreQuery const& query);

    struct Known {
        RequestReading reading;
        SQLite::Statement* statement = nullptr;
        std::string column = {}; // of the entity's table, when all that is asked for is one value there
    };
    /// Null for a shape that is not known.
    Known const* find(StoreQuery const& query, Comparisons const& comparisons);
    /// The values with which the request compares that was found last, as SQL has them.
    std::span<Value const> arguments() const noexcept { return {values_.data(), valueCount_}; }
    /// Binds everything in its statement.
    void bind(Known const& known, StoreQuery const& query) const;
    /// Remembers a request that the store answers alone, if its statement binds each value once and nothing else.
    void remember(StoreQuery const& query, Comparisons const& comparisons, std::span<Value const> arguments, Known known);

private:
    struct Part {
        std::string path;
        NSPredicateOperatorType type{};
        Value::Kind valueKind{};
        SQLKind kind{};
    };
    struct Shape : Known {
        NSEntityDescription const* entity = nullptr;
        bool includesSubentities = true;
        bool isFirstOnly = false, hasOffset = false; // see `cutTextOf`
        std::vector<Part> parts;
        std::vector<Ref<NSSortDescriptor>> order;
        std::uint64_t forgotten = 0; // see `Connection::timesForgotten`

        bool fits(StoreQuery const& query, Comparisons const& comparisons) const;
    };
    bool readArguments(Shape const& shape, Comparisons const& comparisons);

    static constexpr std::size_t most = 16;
    SQLiteSchema const& schema_;
    SQLite::Connection& connection_;
    std::vector<Shape> shapes_;
    std::size_t oldest_ = 0; // which the next one replaces, once there are enough
    std::array<Value, mostComparisons> values_;
    std::size_t valueCount_ = 0;
};

} // namespace Tessarin
