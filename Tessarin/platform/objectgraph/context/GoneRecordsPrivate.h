#pragma once
#include "Tessarin/platform/objectgraph/context/KeySetPrivate.h"
#include <cstdint>
#include <span>
#include <vector>

namespace Tessarin {

/// Records that others have deleted, in the order in which a context learned of it. Who deletes a record need not know who else is
/// linked with it: members that were read before are held against what has come since, once, when they are asked for again.
class GoneRecords {
public:
    void add(std::span<RecordKey const> keys) {
        if (keys_.size() + keys.size() > mostKept) return addMany(keys.size());
        keys_.insert(keys_.end(), keys.begin(), keys.end());
    }
    /// Too many to be named.
    void addMany(std::size_t count) {
        dropped_ += static_cast<std::uint32_t>(keys_.size() + count);
        keys_.clear();
    }
    /// How many there are.
    std::uint32_t count() const noexcept { return dropped_ + static_cast<std::uint32_t>(keys_.size()); }
    /// Whether one of those behind the first `seen` is, or may be, a member.
    bool isAnyIn(KeySet const& members, std::uint32_t seen) const {
        if (members.empty()) return false;
        if (seen < dropped_) return true;
        auto const since = std::span(keys_).subspan(seen - dropped_);
        return std::ranges::any_of(since, [&](RecordKey key) { return members.contains(key); });
    }

private:
    static constexpr std::size_t mostKept = 1024;
    std::vector<RecordKey> keys_; // the latest
    std::uint32_t dropped_ = 0; // before those
};

} // namespace Tessarin
