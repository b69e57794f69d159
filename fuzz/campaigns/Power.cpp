// Power goes in the middle of saves, checkpoints and closings.
#include "fuzz/campaigns/Power.h"

#include "fuzz/campaigns/Batches.h"
#include "fuzz/campaigns/FaultyFiles.h"
#include "fuzz/campaigns/PlainPower.h"

#include <atomic>
#include <filesystem>
#include <sqlite3.h>

namespace Tessarin::campaigns {
namespace {

/// Stores that were closed and opened again; how many saves were acknowledged when power went.
std::int64_t savesUntilCut(Trial& trial, std::string const& file, Synchronous synchronous) {
    std::atomic<std::int64_t> acknowledged{0};
    std::int64_t atCut = 0;
    auto random = [&trial](std::uint64_t bound) { return trial.random(bound); };
    FaultyFiles::cutPower(trial.random(400), random, [&] { atCut = acknowledged; });
    std::int64_t number = 0;
    for (auto sessions = 1 + trial.random(2); sessions > 0; --sessions) {
        Shelf const shelf(file, shelfModel(), Inference::Allowed, synchronous);
        auto const worker = shelf.worker();
        for (auto saves = 2 + trial.random(6); saves > 0; --saves) {
            ++number;
            onQueueOf(*worker, [&] { saveBatch(*worker, number); });
            shelf.saveToDisk(*worker);
            acknowledged = number;
            if (trial.chance(0.2)) shelf.checkpoint();
        }
    }
    return atCut;
}

/// How many saves the file holds; less than none when it is damaged or holds a save by halves.
std::int64_t savesIn(std::string const& file, std::int64_t most) {
    try {
        requireIntegrity(file);
        Shelf const shelf(file);
        auto const content = contentOf(shelf);
        for (auto number = most; number >= 0; --number)
            if (content == contentAfter(number)) return number;
    } catch (std::exception const&) {}
    return -1;
}

} // namespace

void tryPower(Trial& trial, Tally& tally) {
    if (trial.number() % 4 == 3) return tryPlainPower(trial, tally);
    static constexpr Synchronous modes[] = {Synchronous::Full, Synchronous::Full, Synchronous::Full, Synchronous::Normal,
                                            Synchronous::Off};
    auto const mode = modes[trial.number() % std::size(modes)];
    auto const before = trial.folder() + "/before", after = trial.folder() + "/after";
    std::filesystem::create_directory(before);
    std::filesystem::create_directory(after);

    FaultyFiles::beginPowerTrial(before);
    auto const acknowledged = savesUntilCut(trial, before + "/shelf.db", mode);
    auto const wasCut = FaultyFiles::writeDisk(after);
    FaultyFiles::endPowerTrial();
    if (!wasCut) return tally.add("trials ended before power went");

    auto const found = savesIn(after + "/shelf.db", acknowledged + 1);
    char const* const names[] = {"OFF", "NORMAL", "FULL"};
    auto const name = names[static_cast<int>(mode)];
    tally.add(std::string("trials with ") + name);
    if (mode == Synchronous::Off) {
        if (found < 0) tally.add("damaged with OFF");
        if (found < acknowledged) tally.add("behind with OFF");
        return;
    }
    require(found >= 0, "{}: {} saves were acknowledged; the file is damaged, or holds a save by halves", name, acknowledged);
    if (mode == Synchronous::Full)
        require(found >= acknowledged, "FULL: {} saves were acknowledged, {} are there", acknowledged, found);
    if (found < acknowledged) tally.add("behind with NORMAL");
}

void judgePower(Tally const& tally) {
    bool const bites =
        tally.of("behind with NORMAL") > 0 && tally.of("behind with OFF") > 0 && tally.of("behind with atomic writes") > 0;
    bool const isDamaged = tally.of("damaged with OFF") > 0 || tally.of("trials with OFF") < 100; // one in nine
    require(bites && isDamaged, "losing power did not bite: {}", tally.text());
}

} // namespace Tessarin::campaigns
