#pragma once
#include "Tessarin/Export.h"
#include <bit>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

namespace Tessarin {

/// Positions by name: open addressing, one hash and usually one comparison per look-up, no allocation. The names must
/// outlive the index.
class TESSARIN_API NameIndex {
public:
    static constexpr std::uint32_t none = UINT32_MAX;

    /// Adds `name` at the next position; false when it is there already.
    bool append(std::string_view name);

    std::uint32_t find(std::string_view name) const noexcept {
        if (cells_.empty()) return none;
        Words const words(name);
        for (auto at = words.hash() & mask(); cells_[at].position != none; at = (at + 1) & mask())
            if (cells_[at].words == words && (words.areWhole() || names_[cells_[at].position] == name))
                return cells_[at].position;
        return none;
    }

private:
    /// The size of a name, and its first and last eight bytes: all of most names. Names are looked up twice per value of an
    /// import ("store", W10), so there is neither a loop nor a call.
    struct Words {
        Words() = default;
        explicit Words(std::string_view name) noexcept : size(name.size()) {
            auto const* const begin = name.data();
            auto const* const end = begin + size;
            if (size >= 8) {
                first = load<std::uint64_t>(begin), last = load<std::uint64_t>(end - 8);
            } else if (size >= 4) {
                first = load<std::uint32_t>(begin), last = load<std::uint32_t>(end - 4);
            } else if (size > 0) {
                first = static_cast<unsigned char>(begin[0]) | std::uint64_t{static_cast<unsigned char>(begin[size / 2])} << 8;
                last = static_cast<unsigned char>(end[-1]);
            }
        }
        bool areWhole() const noexcept { return size <= 16; }
        std::uint64_t hash() const noexcept { return ((first ^ std::rotl(last, 29) ^ size) * 0x9E3779B97F4A7C15ULL) >> 32; }
        bool operator==(Words const&) const = default;

        std::uint64_t size = 0, first = 0, last = 0;
    };
    template <class Word> static Word load(char const* from) noexcept {
        Word word;
        std::memcpy(&word, from, sizeof word);
        return word;
    }
    struct Entry {
        Words words;
        std::uint32_t position = none;
    };
    std::uint64_t mask() const noexcept { return cells_.size() - 1; }
    void place(std::uint32_t position);

    std::vector<std::string_view> names_;
    std::vector<Entry> cells_; // a power of two, at most half full
};

} // namespace Tessarin
