#include "fuzz/campaigns/PlainPower.h"

#include "fuzz/campaigns/PlainFiles.h"
#include "fuzz/campaigns/PlainWork.h"

#include <atomic>
#include <filesystem>
#include <map>

namespace Tessarin::campaigns {
namespace {

/// How many of the system's calls the steps make.
std::uint64_t callsOf(PlainWorkKind const& kind) {
    static std::map<PlainWorkKind const*, std::uint64_t> known;
    auto& count = known[&kind];
    if (count != 0) return count;
    Trial const place("count", 0);
    auto const folder = place.folder() + "/work";
    std::filesystem::create_directory(folder);
    auto const work = kind.make(folder);
    work->prepare();
    PlainFiles::begin(folder);
    for (std::int64_t number = 1; number <= work->steps(); ++number) work->step(number);
    count = PlainFiles::disk().operations();
    PlainFiles::end();
    return count;
}

} // namespace

void tryPlainPower(Trial& trial, Tally& tally) {
    auto const& kind = plainWorks[trial.random(std::size(plainWorks))];
    auto const before = trial.folder() + "/before", after = trial.folder() + "/after";
    std::filesystem::create_directory(before);
    std::filesystem::create_directory(after);
    auto const at = trial.random(callsOf(kind));
    auto const work = kind.make(before);
    work->prepare();

    std::atomic<std::int64_t> begun{0}, done{0};
    std::int64_t begunAtCut = 0, doneAtCut = 0;
    PlainFiles::begin(before);
    PlainFiles::disk().cutAt(
        at, [&trial](std::uint64_t bound) { return trial.random(bound); },
        [&] {
            begunAtCut = begun;
            doneAtCut = done;
        });
    for (std::int64_t number = 1; number <= work->steps(); ++number) {
        begun = number;
        work->step(number);
        done = number;
    }
    auto const wasCut = PlainFiles::disk().writeTo(after);
    PlainFiles::end();
    if (!wasCut) return tally.add("trials ended before power went");

    tally.add(fmt::format("trials with {}", kind.name));
    try {
        auto const found = work->stepIn(after);
        if (!found) return;
        require(*found <= begunAtCut, "step {} is there, and {} were begun", *found, begunAtCut);
        if (*found < doneAtCut) tally.add(fmt::format("behind with {}", kind.name));
        require(*found >= doneAtCut || !work->isDurable(), "{} steps were done, {} are there", doneAtCut, *found);
    } catch (Broken const& failure) {
        throw Broken(fmt::format("{}, cut at call {}: {}", kind.name, at, failure.what()));
    }
}

} // namespace Tessarin::campaigns
