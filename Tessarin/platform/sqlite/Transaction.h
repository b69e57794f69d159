#pragma once
#include "Tessarin/platform/sqlite/Connection.h"

namespace Tessarin::SQLite {

/// A write transaction: holds the file's write lock from the start, and takes everything back unless it is committed.
class TESSARIN_API Transaction {
public:
    /// Waits for the lock as long as the connection's options say.
    explicit Transaction(Connection& connection) : connection_(connection) {
        connection.prepareToWrite();
        connection.use("BEGIN IMMEDIATE")->run();
    }
    ~Transaction();
    Transaction(Transaction const&) = delete;
    Transaction& operator=(Transaction const&) = delete;

    /// What was done is in the file when this returns; when it throws, nothing is.
    void commit() {
        connection_.use("COMMIT")->run();
        isCommitted_ = true;
    }

private:
    Connection& connection_;
    bool isCommitted_ = false;
};

} // namespace Tessarin::SQLite
