#include "Tessarin/platform/sqlite/Transaction.h"

namespace Tessarin::SQLite {

Transaction::~Transaction() {
    if (isCommitted_ || !connection_.isInTransaction()) return; // SQLite takes some back by itself
    try {
        connection_.use("ROLLBACK")->run();
    } catch (Failure const&) {
        // A failed rollback leaves the file as it was: the log's frames were never committed.
    }
}

} // namespace Tessarin::SQLite
