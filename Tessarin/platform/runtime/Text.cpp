#include "Tessarin/platform/runtime/Text.h"

#include <atomic>
#include <cstring>
#include <new>
#include <ostream>

namespace Tessarin::detail {
namespace {

struct LongText {
    std::atomic<std::uint32_t> references{1};
    std::size_t size = 0;
    char* characters() { return reinterpret_cast<char*>(this + 1); }
};

LongText* longTextOf(CompactCell const& cell) noexcept {
    LongText* text = nullptr;
    std::memcpy(&text, cell.raw, sizeof text);
    return text;
}

} // namespace

void storeLongText(CompactCell& cell, std::string_view text) {
    auto* shared = ::new (::operator new(sizeof(LongText) + text.size())) LongText;
    shared->size = text.size();
    std::memcpy(shared->characters(), text.data(), text.size());
    std::memcpy(cell.raw, &shared, sizeof shared);
    cell.raw[CompactCell::inlineCapacity] = CompactCell::onHeap;
}

void retainText(CompactCell const& cell) noexcept {
    if (cell.raw[CompactCell::inlineCapacity] == CompactCell::onHeap)
        longTextOf(cell)->references.fetch_add(1, std::memory_order_relaxed);
}

void releaseText(CompactCell& cell) noexcept {
    auto* shared = longTextOf(cell);
    if (shared->references.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    shared->~LongText();
    ::operator delete(shared);
}

std::string_view longText(CompactCell const& cell) noexcept {
    auto* shared = longTextOf(cell);
    return {shared->characters(), shared->size};
}

} // namespace Tessarin::detail

namespace Tessarin {

std::ostream& operator<<(std::ostream& out, Text const& text) { return out << text.view(); }

} // namespace Tessarin
