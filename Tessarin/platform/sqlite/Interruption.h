#pragma once
#include "Tessarin/Export.h"
#include <atomic>

namespace Tessarin::SQLite {

class Connection;

/// While it lives, statements of the connection end with a Failure soon after the flag was set, by whatever thread; those that
/// come after it are not touched. Null: nothing does.
class TESSARIN_API Interruption {
public:
    Interruption(Connection& connection, std::atomic<bool> const* isGivenUp) noexcept;
    Interruption(Interruption const&) = delete;
    Interruption& operator=(Interruption const&) = delete;
    ~Interruption();
    /// For what reads without a statement: throws the same Failure, if the flag was set.
    void check() const;

private:
    Connection* connection_; // null without a flag
    std::atomic<bool> const* isGivenUp_;
};

} // namespace Tessarin::SQLite
