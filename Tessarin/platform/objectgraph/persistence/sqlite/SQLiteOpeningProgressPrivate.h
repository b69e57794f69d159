#pragma once
#include "Tessarin/platform/objectgraph/persistence/stores/StoreOpening.h"
#include "Tessarin/platform/sqlite/Connection.h"

namespace Tessarin {

/// Tells an opening what its connection does, step by step, and ends the statement that runs when the opening is cancelled: it
/// then fails with SQLITE_INTERRUPT. Used by the opening's thread, while it lives on nothing else.
class SQLiteOpeningProgress {
public:
    /// Without an opening it does nothing.
    SQLiteOpeningProgress(Ref<StoreOpening> opening, SQLite::Connection& connection);
    ~SQLiteOpeningProgress();
    SQLiteOpeningProgress(SQLiteOpeningProgress const&) = delete;
    SQLiteOpeningProgress& operator=(SQLiteOpeningProgress const&) = delete;

    /// Steps for so many records are still to come.
    void expect(std::int64_t records) noexcept { expected_ += weightOf(records); }
    /// One of them begins, and so the one before is over.
    void begin(StoreProgress::Stage stage, std::string const& entity, std::int64_t records);
    /// All is done; from now on nothing is cancelled.
    void end();

private:
    static constexpr int operationsPerLook = 2000; // of SQLite's machine: less than a tenth of a millisecond
    // Roughly; of a record that is copied it depends on its columns.
    static constexpr double operationsPerCopy = 18, operationsPerIndexEntry = 10;
    static double weightOf(std::int64_t records) noexcept { return static_cast<double>(records) + 1; }
    static int look(void* self) noexcept;
    void leave() noexcept;
    void tell();

    Ref<StoreOpening> const opening_;
    SQLite::Connection& connection_;
    double expected_ = 0, done_ = 0; // weights
    double weight_ = 0;              // of the step that runs
    double operations_ = 0;          // in it
    StoreProgress now_;
    int toldHundredths_ = -1;
};

} // namespace Tessarin
