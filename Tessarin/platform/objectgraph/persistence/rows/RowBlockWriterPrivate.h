#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/objectgraph/persistence/rows/Row.h"

namespace Tessarin {

/// Makes blocks and lays rows into them, one behind the other. Whoever makes rows writes their cells right where they stay,
/// so that a value is copied once. Not synchronised.
class TESSARIN_API RowBlockWriter {
public:
    RowBlockWriter() = default;
    RowBlockWriter(RowBlockWriter const&) = delete;
    RowBlockWriter& operator=(RowBlockWriter const&) = delete;
    ~RowBlockWriter() { close(); }

    /// Room for a row's cells and texts.
    struct Room {
        char* row;        // its start, header included
        std::size_t size; // at least what was asked for
    };
    /// Room for the next row; what was not committed may be asked for again. Rows of more than `longest` bytes do not come here.
    Room room(std::size_t least);
    /// The row begins to exist, with `size` bytes of the room.
    RowRef commit(RowLayout const& layout, RecordKey key, std::uint32_t version, std::size_t size);
    /// No more rows into the open block.
    void close() noexcept;

    static constexpr std::size_t longest = RowBlock::most / 4;
    /// A row in a block of its own, perhaps on top of another one, header written, the rest up to the caller.
    static RowRef alone(RowLayout const& layout, RecordKey key, std::uint32_t version, bool isWide, std::size_t size,
                        RowRef basis = nullptr);

private:
    RowBlock* block_ = nullptr; // the open one
    Row* last_ = nullptr;       // in it
    std::uint32_t given_ = 0;   // references to its rows that were given out
    std::uint32_t nextCapacity_ = 0;
};

} // namespace Tessarin
