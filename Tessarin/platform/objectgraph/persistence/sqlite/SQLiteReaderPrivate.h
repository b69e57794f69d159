#pragma once
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteKnownRequestsPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLitePagedTablesPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteRowDecoderPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreQueryPrivate.h"
#include "Tessarin/platform/sqlite/Connection.h"
#include "Tessarin/platform/sqlite/Interruption.h"
#include <map>
#include <memory>
#include <optional>

namespace Tessarin {

class SQLTranslation;
struct RankedSearch;
struct SearchStatistics;

/// Answers questions over one connection. Used by one thread at a time; what fails throws ErrorException.
class TESSARIN_API SQLiteReader {
public:
    SQLiteReader(SQLiteSchema const& schema, SQLite::Connection& connection);
    /// A read transaction begins, which will see the commits up to that moment at least; without one all are seen.
    void seeAsOf(RowCache::Moment moment) noexcept {
        asOf_ = moment;
        paged_.forget();
    }

    /// Nobody has asked for a while, and the read transaction has ended: memory is given back.
    void rest() noexcept { paged_.rest(); }

    /// The keys of a table that a query reads from one end to the other.
    struct Span {
        RecordKey first, last;
        bool isLong() const noexcept { return last - first > longest; }

    private:
        static constexpr RecordKey longest = 20'000; // by the span: the number of records would cost a scan
    };
    /// Absent for a query that reads less.
    std::optional<Span> spanOf(StoreQuery const& query);
    /// Which records a scan reads: all of an entity.
    struct Scanned {
        NSEntityDescription const* entity;
        bool includesSubentities;
        friend bool operator==(Scanned const&, Scanned const&) = default;
    };
    /// Reads parts of a table by key, one after the other. While it lives, the connection's page cache is small: a table that is
    /// read from one end to the other finds none of its pages there the next time, and would only push out the others.
    class Scan;
    /// Whether most of the query's rows are probably in the cache, see `SQLiteRowDecoder`, which is told of the last result by
    /// `noteCount`.
    bool expectsCached(StoreQuery const& query) { return decoderOf(query).expectsCached(); }
    void noteCount(StoreQuery const& query, std::size_t count) { decoderOf(query).noteCount(count); }
    SQLite::Connection& connection() const noexcept { return connection_; }
    /// What file the reader sees, see `SQLite::Connection::seenState`.
    std::optional<SQLite::Connection::LogState> seenState() const noexcept { return connection_.seenState(); }

    /// The records that a query means, as the end of a statement about `TABLE AS t0`.
    struct Selection {
        std::string condition; // " WHERE …" or empty
        List arguments;
    };
    /// Absent where SQL cannot say it.
    std::optional<Selection> selectionOf(StoreQuery const& query) const;

    /// `span`: its `spanOf`.
    void fetch(StoreQuery const& query, StoreAnswer& answer, std::optional<Span> span);
    void count(StoreQuery const& query, std::size_t& count, bool& complete);
    void explain(StoreQuery const& query, FetchExplanation& explanation);
    /// False where no index knows it.
    bool searchStatistics(RankedSearch const& search, SearchStatistics& statistics);
    void rows(NSEntityDescription const& rootEntity, std::span<RecordKey const> keys, FunctionRef<void(RowRef)> each);
    RowRef row(NSEntityDescription const& rootEntity, RecordKey key);
    void findHolders(UniqueConstraint const& constraint, std::span<RowRef const> rows, std::vector<RecordKey>& holders);
    void members(NSRelationshipDescription const& relationship, std::span<RecordKey const> owners,
                 FunctionRef<void(RecordKey owner, RecordKey member)> each);

private:
    using EachMember = FunctionRef<void(RecordKey owner, RecordKey member)>;
    /// The records of a table with keys in a span, right from their pages; whether all rows are new. Absent, and nothing is added,
    /// where SQLite has to read them.
    std::optional<bool> readPages(SQLiteRowDecoder& decoder, std::string const& table, Span span, std::vector<RowRef>& rows,
                                  SQLiteRowDecoder::Wants wants);
    bool readAllPages(StoreQuery const& query, Span span, SQLite::Interruption const& interruption, StoreAnswer& answer);
    using PageReading =
        FunctionRef<std::optional<std::size_t>(SQLite::TableWalk& walk, std::span<std::size_t const> places)>; // how many records
    bool fromPages(SQLiteRowDecoder const& decoder, std::string const& table, PageReading read);
    // Of records that an index finds, or whose keys are known, right from their pages; false, and nothing is added, where SQLite has
    // to read them:
    bool lookUp(StoreQuery const& query, SQLiteKnownRequests::Known const& known, StoreAnswer& answer);
    bool lookUp(SQLiteRowDecoder& decoder, std::string const& table, std::span<RecordKey const> keys, std::vector<RowRef>& rows);
    bool lookUpMembers(SQLiteSchema::Link const& link, std::span<RecordKey const> owners, EachMember each);
    void readRange(SQLiteRowDecoder& decoder, std::string const& table, std::span<RecordKey const> sortedKeys,
                   FunctionRef<void(RowRef)> each);
    void membersInRange(SQLiteSchema::Link const& link, std::span<RecordKey const> sortedOwners, EachMember each);
    void readFrom(SQLite::Statement& statement, RequestReading const& reading, StoreQuery const& query, StoreAnswer& answer);
    void readByKeys(SQLite::Statement& statement, StoreQuery const& query, std::vector<RowRef>& rows);
    static Scanned scannedBy(StoreQuery const& query) { return {query.entity, query.includesSubentities}; }
    bool translate(StoreQuery const& query, SQLTranslation& translation) const;
    RequestReading readingOf(StoreQuery const& query, SQLTranslation const& translation, bool isComplete);
    std::string textOf(StoreQuery const& query, SQLTranslation const& translation, RequestReading const& reading);
    std::string countText(Scanned const& scanned, SQLTranslation const& translation) const;
    std::string conditionOf(Scanned const& scanned, SQLTranslation const& translation) const;
    SQLiteRowDecoder& decoderFor(NSEntityDescription const& entity, bool includesSubentities);
    SQLiteRowDecoder& decoderOf(StoreQuery const& query) { return decoderFor(*query.entity, query.includesSubentities); }

    class SmallCache;
    SQLiteSchema const& schema_;
    SQLite::Connection& connection_;
    SQLiteRowFeed feed_;
    SQLitePagedTables paged_;
    RowCache::Moment asOf_ = RowCache::always;
    std::map<std::pair<std::size_t, bool>, SQLiteRowDecoder> decoders_;
    SQLiteKnownRequests known_;
};

/// Binds what a translation collected, behind the first `before` parameters.
TESSARIN_API void bindAll(SQLite::Statement& statement, std::span<Value const> arguments, int before = 0);
/// A request's limit and offset as the end of a statement. A look-up of the first record binds neither.
std::string cutTextOf(StoreQuery const& query);
/// Binds what that text leaves open, behind the first `before` parameters.
void bindCut(SQLite::Statement& statement, StoreQuery const& query, int before);

class TESSARIN_API SQLiteReader::Scan {
public:
    Scan(SQLiteReader& reader, Scanned const& scanned);
    ~Scan();
    /// Whether all rows are new, see `SQLiteRowDecoder::readAll`.
    bool read(Span span, std::vector<RowRef>& rows);

private:
    SQLiteReader& reader_;
    Scanned const scanned_;
    SQLiteRowDecoder& decoder_;
    std::unique_ptr<SmallCache> smallCache_; // once SQLite reads
};

/// Sorted keys that lie so close together that reading the whole range costs less than looking each up.
TESSARIN_API bool areDense(std::span<RecordKey const> sortedKeys);

} // namespace Tessarin
