#include "Tessarin/platform/sqlite/Interruption.h"

#include "Tessarin/platform/sqlite/Connection.h"

#include <sqlite3.h>

namespace Tessarin::SQLite {
namespace {

constexpr int stepsBetweenLooks = 1'000; // of SQLite's machine: some ten microseconds

int isSet(void* flag) { return static_cast<std::atomic<bool> const*>(flag)->load(std::memory_order_relaxed) ? 1 : 0; }

} // namespace

// Not sqlite3_interrupt: when that comes a moment too late it hits whatever the connection does next.
Interruption::Interruption(Connection& connection, std::atomic<bool> const* isGivenUp) noexcept
    : connection_(isGivenUp ? &connection : nullptr), isGivenUp_(isGivenUp) {
    if (connection_)
        sqlite3_progress_handler(connection.handle(), stepsBetweenLooks, isSet, const_cast<std::atomic<bool>*>(isGivenUp));
}

Interruption::~Interruption() {
    if (connection_) sqlite3_progress_handler(connection_->handle(), 0, nullptr, nullptr);
}

void Interruption::check() const {
    if (isGivenUp_ && isGivenUp_->load(std::memory_order_relaxed))
        throw Failure(SQLITE_INTERRUPT, 0, sqlite3_errstr(SQLITE_INTERRUPT), connection_->path());
}

} // namespace Tessarin::SQLite
