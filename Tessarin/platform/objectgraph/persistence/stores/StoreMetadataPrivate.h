#pragma once
#include "Tessarin/platform/runtime/Value.h"
#include "Tessarin/platform/sqlite/Connection.h"
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Tessarin {

/// The metadata of a store: what the application sees, and what of it is in the file. Any thread.
class TESSARIN_API StoreMetadata {
public:
    Dictionary get() const;
    void set(Dictionary metadata);
    bool hasUnsaved() const;

    /// Both are the content of the file from now on. It is taken apart when somebody asks.
    void read(SQLite::Connection& connection);
    /// What the application sees under a key, if that is a text; else empty.
    std::string text(std::string_view key) const;
    /// Writes the keys that were changed here, within a transaction of the caller; others stay as another process left them.
    void write(SQLite::Connection& connection);
    /// After the commit: what `write` wrote is saved.
    void confirm();

private:
    void takeApart() const;

    mutable std::mutex mutex_; // guards all
    // Of the file: keys and JSON; empty once that is taken apart.
    mutable std::vector<std::pair<std::string, std::string>> unread_;
    mutable Dictionary current_;
    mutable Dictionary saved_;
    std::optional<Dictionary> written_; // by the transaction under way; absent where nobody has asked for any yet
};

} // namespace Tessarin
