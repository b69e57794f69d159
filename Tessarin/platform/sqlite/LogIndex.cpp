#include "Tessarin/platform/sqlite/LogIndex.h"

#include <cstring>

// A block names the pages of some thousand frames, one after the other, and finds them by a hash of their numbers: of the frames
// that hold one page, the later ones come later in the chain. What others add meanwhile stands behind what a transaction sees.
namespace Tessarin::SQLite {
namespace {

constexpr std::size_t headerWords = 34, hashSize = 8192, framesOfBlock = 4096, framesOfFirst = framesOfBlock - headerWords;
constexpr std::uint32_t understoodVersion = 3007000;

std::size_t blockOf(LogIndex::Number frame) { return (frame + framesOfBlock - framesOfFirst - 1) / framesOfBlock; }

} // namespace

LogIndex::State::State(Connection::LogState const& state) noexcept {
    auto const* bytes = reinterpret_cast<std::byte const*>(state.data());
    std::uint32_t version = 0; // in the machine's own order, as all but the salts
    std::memcpy(&version, bytes, sizeof version);
    isKnown = version == understoodVersion;
    std::uint16_t size = 0;
    std::memcpy(&size, bytes + 14, sizeof size);
    pageSize = size == 1 ? 65536 : size;
    std::memcpy(&frames, bytes + 16, sizeof frames);
    std::memcpy(salts.data(), bytes + 32, salts.size());
}

struct LogIndex::Block {
    std::uint32_t const volatile* pages; // of its frames
    std::size_t count;
    std::uint16_t const volatile* hash; // places among them, from 1; 0 where a chain ends
    std::size_t before; // frames of the blocks before it
};

std::optional<LogIndex::Block> LogIndex::block(std::size_t number) const {
    if (number >= blocks_.size()) blocks_.resize(number + 1);
    if (!blocks_[number]) blocks_[number] = connection_.logIndex(static_cast<int>(number));
    auto const* const words = static_cast<std::uint32_t const volatile*>(blocks_[number]);
    if (!words) return {};
    auto const* const hash = reinterpret_cast<std::uint16_t const volatile*>(words + framesOfBlock);
    if (number == 0) return Block{words + headerWords, framesOfFirst, hash, 0};
    return Block{words, framesOfBlock, hash, framesOfFirst + (number - 1) * framesOfBlock};
}

std::optional<LogIndex::Number> LogIndex::frameOf(Number page, Number frames) const {
    for (std::size_t at = frames == 0 ? 0 : blockOf(frames) + 1; at > 0; --at) {
        auto const here = block(at - 1);
        if (!here) return {};
        Number found = 0;
        auto const first = page * std::size_t{383};
        for (std::size_t step = 0; step < hashSize; ++step) {
            std::size_t const place = here->hash[(first + step) % hashSize];
            if (place == 0) break;
            if (place > here->count) return {};
            auto const frame = here->before + place;
            if (frame <= frames && frame > found && here->pages[place - 1] == page) found = static_cast<Number>(frame);
        }
        if (found != 0) return found;
    }
    return 0;
}

bool LogIndex::eachPage(Number first, Number last, FunctionRef<void(Number page)> each) const {
    for (auto frame = first; frame < last; ++frame) {
        auto const here = block(blockOf(frame + 1));
        if (!here) return false;
        each(here->pages[frame - here->before]);
    }
    return true;
}

} // namespace Tessarin::SQLite
