#include "Tessarin/platform/objectgraph/model/NSManagedObjectModel.h"
#include "Tessarin/platform/objectgraph/persistence/history/HistoryPackingPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/rows/ValueJSONPrivate.h"

#include <algorithm>

namespace Tessarin {
namespace {

void putNumber(std::string& into, std::uint64_t number) {
    for (; number > 0x7F; number >>= 7) into.push_back(static_cast<char>(number | 0x80));
    into.push_back(static_cast<char>(number));
}

/// Small numbers of either sign are short.
void putDifference(std::string& into, std::int64_t difference) {
    auto const bits = static_cast<std::uint64_t>(difference);
    putNumber(into, bits << 1 ^ (difference < 0 ? ~std::uint64_t{0} : 0));
}

void putText(std::string& into, std::string_view text) {
    putNumber(into, text.size());
    into += text;
}

} // namespace

void HistoryPacker::mark(Mask& mask, std::size_t property) {
    if (mask.size() <= property / 8) mask.resize(property / 8 + 1);
    mask[property / 8] = static_cast<std::uint8_t>(mask[property / 8] | 1U << property % 8);
}

bool HistoryPacker::keepsValues(NSEntityDescription const& entity) {
    if (keepsValues_.size() <= entity.index()) keepsValues_.resize(entity.managedObjectModel()->entities().size());
    auto& known = keepsValues_[entity.index()];
    if (known == 0) known = std::ranges::any_of(entity.attributes(), &NSAttributeDescription::isKeptInHistory) ? 2 : 1;
    return known == 2;
}

HistoryPacker::Mask const& HistoryPacker::maskOf(RecordChange const& change) {
    mask_.clear();
    if (change.after != change.before) {
        auto const cells = change.after->layout().cells();
        for (std::size_t cell = 0; cell < cells.size(); ++cell)
            if (!change.before || !change.after->cellEquals(cell, *change.before)) mark(mask_, cells[cell].property->index());
    }
    for (auto const& each : change.relationships) mark(mask_, each.relationship->index());
    return mask_;
}

void HistoryPacker::add(ChangeSet const& set) {
    sectionsOfSet_.clear();
    last_ = sections_.size();
    static Mask const none;
    for (auto const& change : set.changes()) {
        switch (change.kind) {
        case RecordChange::Kind::Insert: add(Kind::Inserted, *change.entity, change.key, change.key, Extent::Each, none); break;
        case RecordChange::Kind::Update:
            add(Kind::Updated, *change.entity, change.key, change.key, Extent::Each, maskOf(change));
            break;
        case RecordChange::Kind::Delete:
            if (!keepsValues(*change.entity)) add(Kind::Deleted, *change.entity, change.key, change.key, Extent::Each, none);
        }
    }
}

HistoryPacker::Section& HistoryPacker::sectionOf(Kind kind, NSEntityDescription const& entity, Extent extent, Mask const& mask) {
    if (last_ < sections_.size()) {
        auto& last = sections_[last_];
        if (last.entity == &entity && last.kind == kind && last.extent == extent && last.kept.empty() && last.mask == mask)
            return last;
    }
    auto const [place, isNew] = sectionsOfSet_.try_emplace({entity.index(), kind, extent, mask}, sections_.size());
    if (isNew) sections_.push_back({&entity, kind, extent, mask, {}, 0, 0, -1, 0, {}});
    last_ = place->second;
    return sections_[last_];
}

void HistoryPacker::add(Kind kind, NSEntityDescription const& entity, RecordKey first, RecordKey last, Extent extent,
                        Mask const& mask) {
    auto& section = sectionOf(kind, entity, extent, mask);
    if (section.count != 0 && section.last + 1 == first) {
        section.last = last;
        return;
    }
    close(section);
    section.first = first;
    section.last = last;
    ++section.count;
}

void HistoryPacker::close(Section& section) {
    if (section.last < section.first) return;
    putDifference(section.runs, section.first - section.packedUpTo);
    putNumber(section.runs, static_cast<std::uint64_t>(section.last - section.first));
    section.packedUpTo = section.last;
}

void HistoryPacker::addDeleted(NSEntityDescription const& entity, RecordKey key, Dictionary const& kept) {
    sectionsOfSet_.clear();
    last_ = sections_.size();
    sections_.push_back({&entity, Kind::Deleted, Extent::Each, {}, {}, 1, key, key, 0, typedJSON(Value(kept))});
}

std::string HistoryPacker::pack(NumberOf numberOf) {
    std::string packed("\1"); // how it is packed
    for (auto& section : sections_) {
        close(section);
        bool const isRange = section.extent == Extent::Range, isKept = !section.kept.empty();
        putNumber(packed, static_cast<std::uint64_t>(numberOf(*section.entity)));
        packed.push_back(static_cast<char>(static_cast<int>(section.kind) | (isRange ? 4 : 0) | (isKept ? 8 : 0)));
        if (section.kind == Kind::Updated)
            putText(packed, {reinterpret_cast<char const*>(section.mask.data()), section.mask.size()});
        putNumber(packed, section.count);
        packed += section.runs;
        if (isKept) putText(packed, section.kept);
    }
    forget();
    return packed;
}

void HistoryPacker::forget() {
    sections_.clear();
    sectionsOfSet_.clear();
    last_ = 0;
}

} // namespace Tessarin
