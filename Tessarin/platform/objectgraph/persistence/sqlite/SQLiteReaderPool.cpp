#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteReaderPoolPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"
#include "Tessarin/platform/queues/Dispatch.h"

// A seat, that is a connection with its reader, is either among `idle_`, and then only who holds `mutex_` may touch it, or
// leased, and then only the thread with the lease may. It moves from the one to the other with the mutex held, which also hands
// on what the last thread left in it: SQLite's connections are opened without locks of their own. Connections are opened
// without the mutex, and surplus ones closed without it, for both may take long; a read transaction is begun by the lessee
// alone. Ending one is short, and done with the mutex held, so that `endIdle` and the timer never meet a seat that somebody is
// about to lease. The moment for the row cache is asked for before BEGIN: a commit in between makes what is read look older
// than it is, which costs a second look at a record and can never pass an old row for a new one. The timer holds the pool
// weakly, since it may come when the store is gone.
namespace Tessarin {

struct SQLiteReaderPool::Seat {
    Seat(SQLiteSchema const& schema, std::unique_ptr<SQLite::Connection> opened)
        : cache(schema.space().cache()), connection(std::move(opened)), reader(schema, *connection) {}

    void begin() {
        if (connection->isInTransaction()) {
            if (!connection->hasNewerCommits()) return;
            end();
        }
        connection->noteCommits(); // before the snapshot is taken: a commit in between only makes it look old too early
        reader.seeAsOf(cache.now());
        connection->use("BEGIN")->run();
    }
    void end() noexcept {
        try {
            if (connection->isInTransaction()) connection->use("COMMIT")->run();
        } catch (SQLite::Failure const&) {
            // Nothing was written, so nothing is lost; the next use begins anew or reports what is wrong.
        }
    }

    RowCache const& cache;
    std::unique_ptr<SQLite::Connection> connection;
    SQLiteReader reader;
};

SQLiteReaderPool::Lease::Lease(SQLiteReaderPool& pool, std::unique_ptr<Seat> seat) noexcept
    : pool_(pool), seat_(std::move(seat)) {}
SQLiteReaderPool::Lease::~Lease() {
    if (seat_) pool_.giveBack(std::move(seat_));
}
SQLiteReader* SQLiteReaderPool::Lease::operator->() const noexcept { return &seat_->reader; }

SQLiteReaderPool::SQLiteReaderPool(SQLiteSchema const& schema, std::string path, SQLite::ConnectionOptions options)
    : schema_(schema), path_(std::move(path)), options_(std::move(options)) {}
SQLiteReaderPool::~SQLiteReaderPool() = default;

void SQLiteReaderPool::add(std::unique_ptr<SQLite::Connection> connection) {
    auto seat = std::make_unique<Seat>(schema_, std::move(connection));
    std::lock_guard const hold(mutex_);
    idle_.push_back(std::move(seat));
}

SQLiteReaderPool::Lease SQLiteReaderPool::lease(Patience patience) {
    Lease lease(*this, take(patience));
    return lease;
}

std::unique_ptr<SQLiteReaderPool::Seat> SQLiteReaderPool::take(Patience patience) {
    std::unique_ptr<Seat> seat;
    std::unique_lock hold(mutex_);
    while (!seat) {
        if (isClosed_) throw ErrorException(storeClosed(path_));
        if (!idle_.empty()) {
            seat = std::move(idle_.back());
            idle_.pop_back();
            break;
        }
        ++betweenLocks_;
        hold.unlock();
        auto const opened = [&] {
            hold.lock();
            --betweenLocks_;
            if (isClosed_) returned_.notify_all();
        };
        try {
            seat = std::make_unique<Seat>(schema_, std::make_unique<SQLite::Connection>(path_, options_));
            opened();
        } catch (SQLite::Failure const&) {
            opened();
            if (patience == Patience::GivesUp || (inUse_ == 0 && idle_.empty())) throw;
            // Out of descriptors: somebody gives one back.
            returned_.wait(hold, [&] { return !idle_.empty() || inUse_ == 0 || isClosed_; });
        } catch (...) {
            opened();
            throw;
        }
    }
    ++inUse_;
    ++uses_;
    hold.unlock();
    try {
        seat->begin();
    } catch (...) {
        giveBack(std::move(seat));
        throw;
    }
    return seat;
}

void SQLiteReaderPool::giveBack(std::unique_ptr<Seat> seat) {
    std::unique_ptr<Seat> surplus; // closed after the lock is released
    auto const now = std::chrono::steady_clock::now();
    {
        std::lock_guard const hold(mutex_);
        --inUse_;
        quickUses_ = now - std::exchange(lastUse_, now) < burst ? quickUses_ + 1 : 0;
        bool const isOneOfMany = quickUses_ > 1; // the first look-up and its fault are not yet worth a timer, and its thread
        if (!isOneOfMany) seat->end();
        if (idle_.size() < keptIdle || isClosed_) { // who closes them waits for it
            idle_.push_back(std::move(seat));
        } else {
            surplus = std::move(seat);
            ++betweenLocks_;
        }
        if (isOneOfMany && !isEndingLater_) endIdleLater();
    }
    if (!surplus) return returned_.notify_all(); // who waits for a connection, and who closes them all
    surplus.reset();
    std::lock_guard const hold(mutex_);
    --betweenLocks_;
    returned_.notify_all();
}

void SQLiteReaderPool::close() {
    std::vector<std::unique_ptr<Seat>> seats; // closed after the lock is released
    std::unique_lock hold(mutex_);
    isClosed_ = true;
    returned_.wait(hold, [&] { return inUse_ == 0 && betweenLocks_ == 0; });
    seats.swap(idle_);
}

void SQLiteReaderPool::endIdle() {
    std::lock_guard const hold(mutex_);
    for (auto const& seat : idle_) seat->end();
}

void SQLiteReaderPool::endIdleLater() {
    isEndingLater_ = true;
    dispatch_after(dispatch_time(DISPATCH_TIME_NOW, 50'000'000), dispatch_get_global_queue(QOS_CLASS_UTILITY, 0),
                   [weak = weak_from_this(), use = uses_] {
                       if (auto const self = weak.lock()) self->endUnlessUsedSince(use);
                   });
}

void SQLiteReaderPool::endUnlessUsedSince(std::uint64_t use) {
    std::lock_guard const hold(mutex_);
    isEndingLater_ = false;
    if (uses_ != use) return endIdleLater();
    for (auto const& seat : idle_) {
        seat->end();
        seat->reader.rest();
    }
}

} // namespace Tessarin
