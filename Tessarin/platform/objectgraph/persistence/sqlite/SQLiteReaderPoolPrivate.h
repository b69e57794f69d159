#pragma once
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteReaderPrivate.h"
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>

namespace Tessarin {

/// The connections over which a store is read, so that fetches run beside a save and beside one another. A connection
/// keeps its read transaction through a quick succession of uses for as long as nobody commits, which makes small look-ups
/// cheaper by half; a moment after the last use it is ended, because it would keep the log from being emptied. Any thread.
class TESSARIN_API SQLiteReaderPool : public std::enable_shared_from_this<SQLiteReaderPool> {
    struct Seat;

public:
    /// A reader of this thread's own, until it goes.
    class Lease {
    public:
        Lease(SQLiteReaderPool& pool, std::unique_ptr<Seat> seat) noexcept;
        Lease(Lease&&) noexcept = default;
        ~Lease();
        SQLiteReader* operator->() const noexcept;
        SQLiteReader& operator*() const noexcept { return *operator->(); }

    private:
        SQLiteReaderPool& pool_;
        std::unique_ptr<Seat> seat_;
    };

    SQLiteReaderPool(SQLiteSchema const& schema, std::string path, SQLite::ConnectionOptions options);
    ~SQLiteReaderPool();

    /// Adds a connection that is open already.
    void add(std::unique_ptr<SQLite::Connection> connection);
    /// Where no connection can be made, one in use is waited for. Throws SQLite::Failure when there is none, or nobody waits.
    enum class Patience { Waits, GivesUp };
    Lease lease(Patience patience = Patience::Waits);
    /// Waits for those in use, and closes all; a lease throws `storeClosed` from now on. Not while this thread has one.
    void close();
    /// Ends the read transactions of connections that nobody uses, so that a commit may empty the log.
    void endIdle();

private:
    static constexpr std::size_t keptIdle = 4;
    static constexpr std::chrono::milliseconds burst{5};
    std::unique_ptr<Seat> take(Patience patience);
    void giveBack(std::unique_ptr<Seat> seat);
    void endIdleLater();
    void endUnlessUsedSince(std::uint64_t use);

    SQLiteSchema const& schema_;
    std::string const path_;
    SQLite::ConnectionOptions const options_;
    std::mutex mutex_; // guards what follows
    std::condition_variable returned_;
    std::vector<std::unique_ptr<Seat>> idle_;
    std::size_t inUse_ = 0;
    std::size_t betweenLocks_ = 0; // connections that somebody makes or closes
    bool isClosed_ = false;
    std::uint64_t uses_ = 0;
    std::chrono::steady_clock::time_point lastUse_;
    std::size_t quickUses_ = 0; // in a row
    bool isEndingLater_ = false;
};

} // namespace Tessarin
