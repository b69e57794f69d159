#include "Tessarin/platform/objectgraph/persistence/rows/KeptRowsPrivate.h"

#include <limits>

namespace Tessarin {

void KeptRows::add(std::span<RowRef const> rows, bool fillBlocks) {
    for (std::size_t at = 0; at < rows.size(); at += pieces_.back().count) {
        auto const& block = rows[at].block();
        auto const count = block.rowCount.load(std::memory_order_relaxed);
        pieces_.push_back({rows[at], fillBlocks ? count : std::uint32_t{1}});
        bytes_ += fillBlocks ? block.capacity : block.capacity / count;
    }
    count_ += rows.size();
}

void KeptRows::appendTo(std::vector<RowRef>& rows) const {
    rows.reserve(rows.size() + count_);
    for (auto const& [first, count] : pieces_) {
        auto& block = first.block();
        block.retain(count);
        auto* row = const_cast<Row*>(first.get());
        for (auto left = count; left > 0; --left, row = block.after(*row)) rows.push_back(RowRef::adopt(row));
    }
}

/// Makes the pieces anew, as they are where nothing changed in them.
class KeptRows::Patch {
public:
    explicit Patch(Changes const& changes) : next_(changes.begin()), end_(changes.end()) {}

    /// All keys of the piece are smaller than `bound`.
    void add(Piece& piece, RecordKey bound) {
        addNewBefore(piece.first->key());
        if (next_ == end_ || next_->first >= bound) {
            count += piece.count;
            pieces.push_back(std::move(piece));
            return;
        }
        auto& block = piece.first.block();
        auto* row = const_cast<Row*>(piece.first.get());
        bool isNeighbour = false; // of the last row that stayed
        for (auto left = piece.count; left > 0; --left, row = block.after(*row)) {
            addNewBefore(row->key(), isNeighbour);
            if (next_ != end_ && next_->first == row->key()) {
                addChange();
                isNeighbour = false;
            } else if (isNeighbour) {
                ++pieces.back().count;
                ++count;
            } else {
                block.retain();
                addPiece(RowRef::adopt(row));
                isNeighbour = true;
            }
        }
    }
    void finish() { addNewBefore(std::numeric_limits<RecordKey>::max()); }

    std::vector<Piece> pieces;
    std::size_t count = 0, bytes = 0;

private:
    void addPiece(RowRef row) {
        pieces.push_back({std::move(row), 1});
        ++count;
    }
    void addChange() {
        auto const& row = (next_++)->second;
        if (!row) return;
        bytes += row.block().capacity / row.block().rowCount.load(std::memory_order_relaxed);
        addPiece(row);
    }
    void addNewBefore(RecordKey key) {
        while (next_ != end_ && next_->first < key) addChange();
    }
    void addNewBefore(RecordKey key, bool& isNeighbour) {
        if (next_ == end_ || next_->first >= key) return;
        addNewBefore(key);
        isNeighbour = false;
    }

    Changes::const_iterator next_, end_;
};

void KeptRows::apply(Changes const& changes) {
    Patch patch(changes);
    for (std::size_t at = 0; at < pieces_.size(); ++at) {
        bool const isLast = at + 1 == pieces_.size();
        patch.add(pieces_[at], isLast ? std::numeric_limits<RecordKey>::max() : pieces_[at + 1].first->key());
    }
    patch.finish();
    pieces_ = std::move(patch.pieces);
    count_ = patch.count;
    bytes_ += patch.bytes;
}

} // namespace Tessarin
