#pragma once
#include "Tessarin/platform/runtime/Value.h"
#include "Tessarin/platform/sqlite/Connection.h"
#include <mutex>

namespace Tessarin {

/// The metadata of a store: what the application sees, and what of it is in the file. Any thread.
class TESSARIN_API StoreMetadata {
public:
    Dictionary get() const;
    void set(Dictionary metadata);
    bool hasUnsaved() const;

    /// Both are the content of the file from now on.
    void read(SQLite::Connection& connection);
    /// Writes the keys that were changed here, within a transaction of the caller; others stay as another process left them.
    void write(SQLite::Connection& connection);
    /// After the commit: what `write` wrote is saved.
    void confirm();

private:
    mutable std::mutex mutex_; // guards all
    Dictionary current_;
    Dictionary saved_;
    Dictionary written_; // by the transaction under way
};

} // namespace Tessarin
