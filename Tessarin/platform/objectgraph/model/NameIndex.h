#pragma once
#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

namespace Tessarin {

/// Positions by name: open addressing, one hash and usually one comparison per look-up, no allocation. The names must
/// outlive the index.
class NameIndex {
public:
    static constexpr std::uint32_t none = UINT32_MAX;

    /// Adds `name` at the next position; false when it is there already.
    bool append(std::string_view name) {
        if (find(name) != none) return false;
        names_.push_back(name);
        if (names_.size() * 2 > cells_.size()) {
            cells_.assign(std::bit_ceil(names_.size() * 4), {});
            for (std::uint32_t at = 0; at < names_.size(); ++at) place(at);
        } else {
            place(static_cast<std::uint32_t>(names_.size() - 1));
        }
        return true;
    }

    std::uint32_t find(std::string_view name) const noexcept {
        if (cells_.empty()) return none;
        auto const hash = hashOf(name);
        for (auto at = hash & mask(); cells_[at].position != none; at = (at + 1) & mask())
            if (cells_[at].hash == hash && names_[cells_[at].position] == name) return cells_[at].position;
        return none;
    }

private:
    struct Entry {
        std::uint32_t hash = 0;
        std::uint32_t position = none;
    };
    // The length and the first and last eight bytes tell most names of one entity apart; names are looked up once per value of
    // an import.
    static std::uint32_t hashOf(std::string_view name) noexcept {
        std::uint64_t first = 0, last = 0;
        auto const count = std::min(name.size(), sizeof first);
        if (count == 0) return 0;
        std::memcpy(&first, name.data(), count);
        std::memcpy(&last, name.data() + name.size() - count, count);
        auto const mixed = (first ^ std::rotl(last, 29) ^ name.size()) * 0x9E3779B97F4A7C15ULL;
        return static_cast<std::uint32_t>(mixed >> 32);
    }
    std::uint32_t mask() const noexcept { return static_cast<std::uint32_t>(cells_.size() - 1); }
    void place(std::uint32_t position) {
        auto const hash = hashOf(names_[position]);
        auto at = hash & mask();
        while (cells_[at].position != none) at = (at + 1) & mask();
        cells_[at] = {hash, position};
    }

    std::vector<std::string_view> names_;
    std::vector<Entry> cells_; // a power of two, at most half full
};

} // namespace Tessarin
