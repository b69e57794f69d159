// One operation after the other fails: of files, or for want of memory.
#include "fuzz/campaigns/Faults.h"

#include "fuzz/campaigns/Scenes.h"

#include "Tessarin/platform/foundation/values/NSError.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <future>
#include <map>

namespace Tessarin::campaigns {

Scene::Scene(std::string folder) : folder_(std::move(folder)) { std::filesystem::create_directory(folder_); }

namespace {

using FaultyFiles::Duration;
using FaultyFiles::Kind;

constexpr Kind kinds[] = {Kind::InputOutput, Kind::Reading, Kind::Full, Kind::ShortWrite, Kind::Memory};

std::vector<SceneKind> const& scenes() {
    static auto const all = [] {
        std::vector<SceneKind> scenes;
        for (auto const some : {storeScenes(), plainScenes()}) scenes.insert(scenes.end(), some.begin(), some.end());
        return scenes;
    }();
    return all;
}

/// How many operations of that kind the scene has.
std::uint64_t operationsOf(SceneKind const& scene, Kind kind) {
    static std::map<std::pair<SceneKind const*, Kind>, std::uint64_t> known;
    auto& count = known[{&scene, kind}];
    if (count != 0) return count;
    Trial place("count", 0);
    auto const rehearsal = scene.make(place.folder() + "/store");
    rehearsal->prepare();
    FaultyFiles::setLayer(scene.layer);
    FaultyFiles::count(kind);
    rehearsal->run();
    count = std::max<std::uint64_t>(1, FaultyFiles::counted());
    rehearsal->check();
    return count;
}

/// Runs the scene beside a clock: what waits for a sticky fault to pass goes on once it has.
bool succeeds(Scene& scene, Kind kind, Duration duration, std::string& words) {
    auto running = std::async(std::launch::async, [&] {
        try {
            scene.run();
            return true;
        } catch (ErrorException const& failure) {
            words = failure.error()->localizedDescription();
            return false;
        }
    });
    if (duration == Duration::Sticky && running.wait_for(scene.patience(kind)) == std::future_status::timeout)
        FaultyFiles::heal();
    require(running.wait_for(std::chrono::seconds(60)) == std::future_status::ready, "it hangs");
    return running.get();
}

} // namespace

/// Trial n is the fault of that number in a list of all of them: scene by scene, kind by kind, once and sticky. The operations
/// come in a scattered order, so that few trials reach everywhere and enough of them each.
void tryFault(Trial& trial, Tally& tally) {
    auto number = trial.number();
    auto const take = [&](std::uint64_t count) {
        auto const digit = number % count;
        number /= count;
        return digit;
    };
    auto const& sceneKind = scenes()[take(scenes().size())];
    auto const kind = kinds[take(std::size(kinds))];
    auto const duration = take(2) == 0 ? Duration::Once : Duration::Sticky;
    auto const operations = operationsOf(sceneKind, kind);
    if (number >= operations) return tally.add("beyond the last operation");
    auto const at = number * 7919 % operations; // a prime that no such number is a multiple of

    auto const scene = sceneKind.make(trial.folder() + "/store");
    scene->prepare();
    FaultyFiles::setLayer(sceneKind.layer);
    FaultyFiles::fail(kind, at, duration);
    std::string words;
    try {
        bool const succeeded = succeeds(*scene, kind, duration, words);
        FaultyFiles::heal();
        tally.add(FaultyFiles::failures() == 0 ? "not reached" : succeeded ? "survived or waited out" : "reported");
        if (!succeeded) scene->afterFailure();
        scene->check();
    } catch (std::exception const& failure) {
        FaultyFiles::heal();
        throw Broken(fmt::format("{}, operation {} of {}, kind {}, {}: {} [{}]", sceneKind.name, at, operations,
                                 static_cast<int>(kind), duration == Duration::Once ? "once" : "sticky", failure.what(), words));
    }
}

void judgeFaults(Tally const& tally) {
    require(tally.of("reported") > 0 && tally.of("survived or waited out") > 0, "no fault was met: {}", tally.text());
}

} // namespace Tessarin::campaigns
