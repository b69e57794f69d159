// Few records, which an index finds or whose keys are known, right from their pages.
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteReaderPrivate.h"

#include "Tessarin/platform/sqlite/StatementLog.h"

#include <chrono>

namespace Tessarin {
namespace {

using Sought = SQLite::IndexWalk::Sought;

constexpr std::size_t mostFound = 1000; // with more, SQLite's own cache of pages is worth more

/// Absent for a value that an index cannot be looked through for here.
std::optional<Sought> soughtOf(Value const& value) {
    switch (value.kind()) {
    case Value::Kind::Integer: return Sought{Sought::Kind::Integer, value.integer()};
    case Value::Kind::Text: return Sought{Sought::Kind::Text, 0, value.text()};
    case Value::Kind::Data: {
        auto const bytes = value.bytes();
        return Sought{Sought::Kind::Bytes, 0, {reinterpret_cast<char const*>(bytes.data()), bytes.size()}};
    }
    default: return {};
    }
}

/// Tells who wants to see what a store is asked.
class Noted {
public:
    explicit Noted(SQLite::Connection const& connection) : log_(connection.log()) {
        if (log_) start_ = std::chrono::steady_clock::now();
    }
    template <class... Parts> void tell(std::size_t rows, Parts const&... parts) const {
        if (log_) log_->note((std::string("pages of ") + ... + parts), start_, rows);
    }

private:
    SQLite::StatementLog* const log_;
    std::chrono::steady_clock::time_point start_;
};

} // namespace

bool SQLiteReader::lookUp(StoreQuery const& query, SQLiteKnownRequests::Known const& known, StoreAnswer& answer) {
    if (known.column.empty() || query.wantsKeysOnly || query.offset != 0 || !query.sortDescriptors.empty()) return false;
    auto const& name = schema_.tableOf(*query.entity).name;
    auto* const table = paged_.find(name);
    auto* const index = table ? table->indexOf(known.column) : nullptr;
    auto const sought = index ? soughtOf(known_.arguments().front()) : std::nullopt;
    if (!sought || !index->canFind(*sought)) return false;
    auto& decoder = decoderOf(query);
    auto const places = table->placesFor(decoder);
    if (places.empty()) return false;

    Noted const noted(connection_);
    std::vector<RowRef> rows;
    bool areRecords = true;
    std::size_t looked = 0;
    bool const isIndex = index->find(*sought, [&](RecordKey key) {
        auto const record = table->walk.find(key);
        areRecords = record && *record && decoder.add(**record, places, rows);
        return areRecords && ++looked < mostFound && (query.limit == 0 || rows.size() < query.limit);
    });
    if (!isIndex || !areRecords) return paged_.avoid(*table), false;
    if (looked == mostFound) return false;
    noted.tell(rows.size(), name, " by ", known.column);
    if (!known.reading.isCut) decoder.noteCount(rows.size());
    answer.rows = std::move(rows);
    return true;
}

bool SQLiteReader::lookUp(SQLiteRowDecoder& decoder, std::string const& table, std::span<RecordKey const> keys,
                          std::vector<RowRef>& rows) {
    auto* const paged = paged_.findForFew(table);
    auto const places = paged ? paged->placesFor(decoder) : std::span<std::size_t const>();
    if (places.empty()) return false;
    Noted const noted(connection_);
    for (auto const key : keys) {
        auto const record = paged->walk.find(key);
        if (record && (!*record || decoder.add(**record, places, rows))) continue;
        paged_.avoid(*paged);
        rows.clear();
        return false;
    }
    noted.tell(rows.size(), table, " by key");
    return true;
}

bool SQLiteReader::lookUpMembers(SQLiteSchema::Link const& link, std::span<RecordKey const> owners, EachMember each) {
    if (!link.position.empty() || link.member != "id") return false;
    auto* const table = paged_.find(link.table);
    auto* const index = table ? table->indexOf(link.owner) : nullptr;
    if (!index) return false;
    Noted const noted(connection_);
    std::vector<std::pair<RecordKey, RecordKey>> found;
    for (auto const owner : owners) {
        bool const isSound = index->find({Sought::Kind::Integer, owner}, [&](RecordKey key) {
            found.emplace_back(owner, key);
            return true;
        });
        if (!isSound) return paged_.avoid(*table), false;
        paged_.trim();
    }
    noted.tell(found.size(), link.table, " by ", link.owner);
    for (auto const& [owner, member] : found) each(owner, member);
    return true;
}

} // namespace Tessarin
