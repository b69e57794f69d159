#include "Tessarin/platform/objectgraph/model/NSEntityDescription.h"
#include "Tessarin/platform/objectgraph/persistence/history/HistoryPackingPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/rows/ValueJSONPrivate.h"

#include <optional>

namespace Tessarin {
namespace {

/// Takes numbers and texts from the front. What does not fit throws.
class Unpacking {
public:
    struct Senseless {};

    explicit Unpacking(std::span<std::byte const> packed) : rest_(reinterpret_cast<char const*>(packed.data()), packed.size()) {}

    bool isAtEnd() const noexcept { return rest_.empty(); }
    std::uint8_t byte() {
        if (rest_.empty()) throw Senseless{};
        auto const byte = static_cast<std::uint8_t>(rest_.front());
        rest_.remove_prefix(1);
        return byte;
    }
    std::uint64_t number() {
        std::uint64_t number = 0;
        for (unsigned shift = 0; shift < 64; shift += 7) {
            auto const part = byte();
            if (shift == 63 && part > 1) throw Senseless{};
            number |= static_cast<std::uint64_t>(part & 0x7F) << shift;
            if ((part & 0x80) == 0) return number;
        }
        throw Senseless{};
    }
    std::string_view text() {
        auto const size = number();
        if (size > rest_.size()) throw Senseless{};
        auto const text = rest_.substr(0, static_cast<std::size_t>(size));
        rest_.remove_prefix(text.size());
        return text;
    }
    /// Keys are positive.
    void run(RecordKey& upTo, HistoryChange& change) {
        auto const bits = number();
        auto const difference = bits >> 1 ^ (~(bits & 1) + 1);
        auto const first = static_cast<RecordKey>(static_cast<std::uint64_t>(upTo) + difference); // may wrap, and is refused then
        auto const further = number();
        if (first <= 0 || further > static_cast<std::uint64_t>(INT64_MAX - first)) throw Senseless{};
        change.first = first;
        change.last = upTo = first + static_cast<RecordKey>(further);
    }

private:
    std::string_view rest_;
};

std::vector<NSPropertyDescription const*> propertiesOf(NSEntityDescription const& entity, std::string_view mask) {
    std::vector<NSPropertyDescription const*> found;
    for (std::size_t at = 0; at < mask.size() * 8; ++at) {
        if ((static_cast<std::uint8_t>(mask[at / 8]) >> at % 8 & 1) == 0) continue;
        auto const* property = entity.propertyAt(at);
        if (!property) throw Unpacking::Senseless{};
        found.push_back(property);
    }
    return found;
}

void unpackSection(Unpacking& packed, NSEntityDescription const* entity, std::vector<HistoryChange>& changes) {
    static constexpr int kinds = 3, range = 4, kept = 8;
    auto const form = packed.byte();
    HistoryChange change{.kind = static_cast<HistoryChange::Kind>(form & kinds),
                         .extent = form & range ? HistoryChange::Extent::Range : HistoryChange::Extent::Each,
                         .entity = entity};
    bool const isKept = (form & kept) != 0, isDeletion = change.kind == HistoryChange::Kind::Deleted;
    if ((form & kinds) == kinds || form > (kinds | range | kept) || !entity || (isKept && !isDeletion))
        throw Unpacking::Senseless{};
    if (change.kind == HistoryChange::Kind::Updated) change.updated = propertiesOf(*entity, packed.text());
    RecordKey upTo = 0;
    for (auto count = packed.number(); count > 0; --count) { // each takes two bytes at least: what is not there, ends it
        packed.run(upTo, change);
        changes.push_back(change);
    }
    if (!isKept) return;
    auto const values = valueOfTypedJSON(packed.text());
    if (!values || values->kind() != Value::Kind::Dictionary || changes.empty()) throw Unpacking::Senseless{};
    changes.back().kept = values->dictionary();
}

} // namespace

bool unpackHistory(std::span<std::byte const> bytes, FunctionRef<NSEntityDescription const*(std::int64_t)> entityNumbered,
                   std::vector<HistoryChange>& changes) {
    auto const before = changes.size();
    try {
        Unpacking packed(bytes);
        if (packed.byte() != 1) throw Unpacking::Senseless{};
        while (!packed.isAtEnd()) {
            auto const* entity = entityNumbered(static_cast<std::int64_t>(packed.number()));
            unpackSection(packed, entity, changes);
        }
        return true;
    } catch (Unpacking::Senseless const&) {
        changes.resize(before);
        return false;
    }
}

} // namespace Tessarin
