#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/runtime/FunctionRef.h"
#include "Tessarin/platform/sqlite/Connection.h"
#include <vector>

namespace Tessarin::SQLite {

/// Where the pages stand that a write-ahead log holds, as the index says that all connections of a file share. Described at
/// sqlite.org/walformat.html. For who holds a read transaction, which keeps what it sees of the log where it stands.
class TESSARIN_API LogIndex {
public:
    using Number = std::uint32_t; // of a page, or of a frame of the log that holds one: both from 1

    explicit LogIndex(Connection const& connection) : connection_(connection) {}

    /// What a state of the log says.
    struct State {
        explicit State(Connection::LogState const& state) noexcept;
        bool isKnown = false; // the index has the form that this understands
        std::size_t pageSize = 0;
        Number frames = 0; // that are committed
        std::array<std::byte, 8> salts{}; // others once the log was begun anew
    };

    /// The last of the first `frames` that holds a page; 0 when none does. Absent where the index cannot be read.
    std::optional<Number> frameOf(Number page, Number frames) const;
    /// Calls `each` with every page that the frames after `first`, up to `last`, hold. False where they cannot be read.
    bool eachPage(Number first, Number last, FunctionRef<void(Number page)> each) const;

private:
    struct Block;
    std::optional<Block> block(std::size_t number) const;

    Connection const& connection_;
    mutable std::vector<void const volatile*> blocks_; // as far as they were asked for; they stay where they are
};

} // namespace Tessarin::SQLite
