// One operation after the other fails: of files, or for want of memory.
#include "fuzz/campaigns/Faults.h"

#include "fuzz/campaigns/Batches.h"
#include "fuzz/campaigns/FaultyFiles.h"

#include <chrono>
#include <filesystem>
#include <future>
#include <map>

namespace Tessarin::campaigns {
namespace {

using FaultyFiles::Duration;
using FaultyFiles::Kind;
namespace fs = std::filesystem;

constexpr std::int64_t savedBefore = 7;

/// What a fault is met in. `prepare` makes the folder; `run` is what operations are counted and fail in, and throws an
/// ErrorException when it says that it failed; `check` is asked when all is well again.
class Scene {
public:
    explicit Scene(std::string folder) : folder_(std::move(folder)) { fs::create_directory(folder_); }
    virtual ~Scene() = default;
    virtual void prepare() = 0;
    virtual void run() = 0;
    /// How long a sticky fault lasts.
    virtual std::chrono::milliseconds patience(Kind) const { return std::chrono::milliseconds(30); }
    /// After a failure, before anything is tried again.
    virtual void afterFailure() {}
    virtual void check() = 0;

protected:
    std::string file() const { return folder_ + "/shelf.db"; }
    void fill() const {
        static Trial const place("filled", 0); // saves take longer than a copy of what they made
        auto const filled = place.folder() + "/shelf.db";
        if (!fs::exists(filled)) {
            Shelf const shelf(filled);
            auto const worker = shelf.worker();
            for (std::int64_t number = 1; number <= savedBefore; ++number) {
                onQueueOf(*worker, [&] { saveBatch(*worker, number); });
                shelf.saveToDisk(*worker);
            }
        }
        fs::copy_file(filled, file());
    }
    void requireContent(Shelf const& shelf, std::int64_t number, char const* when) const {
        auto const difference = differenceOf(contentOf(shelf), contentAfter(number));
        require(difference.empty(), "{}: {}", when, difference);
    }
    void requireOnDisk(std::int64_t number) const {
        requireIntegrity(file());
        requireContent(Shelf(file()), number, "on disk");
        require(!fs::exists(fs::path(folder_).parent_path() / ".store.rescued"), "a passing fault had the store wiped");
    }

    std::string folder_;
};

class OpenNew : public Scene {
    using Scene::Scene;
    void prepare() override {}
    void run() override { Shelf const shelf(file()); }
    void check() override {
        Shelf const shelf(file());
        auto const worker = shelf.worker();
        onQueueOf(*worker, [&] { saveBatch(*worker, 1); });
        shelf.saveToDisk(*worker);
        requireOnDisk(1);
    }
};

class OpenOld : public Scene {
    using Scene::Scene;
    void prepare() override {
        fill();
        Shelf const shelf(file()); // leaves a log behind when it is copied while it is open
        auto const worker = shelf.worker();
        onQueueOf(*worker, [&] { saveBatch(*worker, savedBefore + 1); });
        shelf.saveToDisk(*worker);
        for (auto const* ending : {"", "-wal"}) fs::copy_file(file() + ending, file() + ending + ".copy");
        copied_ = true;
    }
    void run() override {
        if (std::exchange(copied_, false))
            for (auto const* ending : {"", "-wal"}) fs::rename(file() + ending + ".copy", file() + ending);
        Shelf const shelf(file());
        requireContent(shelf, savedBefore + 1, "just opened");
    }
    /// Longer than all the looks that find a file damaged, else what is wrong in the verdict heals with the fault.
    std::chrono::milliseconds patience(Kind kind) const override { return std::chrono::milliseconds(kind == Kind::InputOutput ? 130 : 30); }
    void check() override {
        requireOnDisk(savedBefore + 1);
        require(FaultyFiles::failures() < 300, "{} failures while it waited: it is tried again without a pause", FaultyFiles::failures());
    }
    bool copied_ = false;
};

class Save : public Scene {
    using Scene::Scene;
    void prepare() override {
        fill();
        shelf_.emplace(file());
        worker_ = shelf_->worker();
        onQueueOf(*worker_, [&] { saveBatch(*worker_, savedBefore + 1); });
    }
    void run() override {
        shelf_->saveToDisk(*worker_);
        wasSaved_ = true;
    }
    void afterFailure() override {
        bool hasChanges = false;
        for (auto const& context : {worker_, shelf_->main, shelf_->root})
            context->performBlockAndWait([&] { hasChanges = hasChanges || context->hasChanges(); });
        require(hasChanges, "a save failed and its changes are gone");
        requireContent(Shelf(file()), savedBefore, "in the file after a failed save"); // before a second try hides it
        shelf_->saveToDisk(*worker_);
        wasSaved_ = true;
    }
    void check() override {
        require(wasSaved_, "the save neither failed nor succeeded");
        requireContent(*shelf_, savedBefore + 1, "in the contexts");
        worker_ = nullptr;
        shelf_.reset();
        requireOnDisk(savedBefore + 1);
    }
    std::optional<Shelf> shelf_;
    Ref<NSManagedObjectContext> worker_;
    bool wasSaved_ = false;
};

class Fetch : public Scene {
    using Scene::Scene;
    void prepare() override {
        fill();
        shelf_.emplace(file());
    }
    void run() override {
        requireContent(*shelf_, savedBefore, "fetched");
        auto const worker = shelf_->worker();
        onQueueOf(*worker, [&] {
            for (auto const& batch : fetched(*worker, "Batch", NSPredicate::predicateWithFormat("number > %d", 3)))
                for (auto const& item : batch->mutableSetValueForKey("items").allObjects())
                    require(integerOf(*item->valueForKey("batch").objectAs<NSManagedObject>(), "number") > 3, "a wrong answer");
        });
    }
    void check() override {
        shelf_.reset();
        requireOnDisk(savedBefore);
    }
    std::optional<Shelf> shelf_;
};

/// The log goes into the file, and the store is closed.
class Checkpoint : public Scene {
    using Scene::Scene;
    void prepare() override {
        fill();
        shelf_.emplace(file());
        auto const worker = shelf_->worker();
        onQueueOf(*worker, [&] { saveBatch(*worker, savedBefore + 1); });
        shelf_->saveToDisk(*worker);
    }
    void run() override {
        shelf_->checkpoint();
        shelf_.reset();
    }
    void check() override {
        shelf_.reset();
        requireOnDisk(savedBefore + 1);
    }
    std::optional<Shelf> shelf_;
};

class Migrate : public Scene {
    using Scene::Scene;
    void prepare() override { fill(); }
    void run() override { Shelf const shelf(file(), laterShelfModel()); }
    void check() override {
        requireIntegrity(file());
        Shelf const shelf(file(), laterShelfModel(), Inference::Forbidden);
        onQueueOf(*shelf.root, [&] {
            for (auto const& batch : fetched(*shelf.root, "Batch")) require(batch->valueForKey("title") == Value("untitled"), "a default is missing");
        });
        requireContent(shelf, savedBefore, "migrated");
        require(!fs::exists(fs::path(folder_).parent_path() / ".store.rescued"), "a passing fault had the store wiped");
    }
};

using Make = std::unique_ptr<Scene> (*)(std::string);
template <class T> std::unique_ptr<Scene> made(std::string folder) { return std::make_unique<T>(std::move(folder)); }
struct SceneKind {
    char const* name;
    Make make;
};
constexpr SceneKind scenes[] = {{"open a new store", made<OpenNew>}, {"open", made<OpenOld>},       {"save", made<Save>},
                                {"fetch", made<Fetch>},              {"checkpoint", made<Checkpoint>}, {"migrate", made<Migrate>}};
constexpr Kind kinds[] = {Kind::InputOutput, Kind::Full, Kind::ShortWrite, Kind::Memory};

/// How many operations of that kind the scene has.
std::uint64_t operationsOf(SceneKind const& scene, Kind kind) {
    static std::map<std::pair<SceneKind const*, Kind>, std::uint64_t> known;
    auto& count = known[{&scene, kind}];
    if (count != 0) return count;
    Trial place("count", 0);
    auto const rehearsal = scene.make(place.folder() + "/store");
    rehearsal->prepare();
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
    if (duration == Duration::Sticky && running.wait_for(scene.patience(kind)) == std::future_status::timeout) FaultyFiles::heal();
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
    auto const& sceneKind = scenes[take(std::size(scenes))];
    auto const kind = kinds[take(std::size(kinds))];
    auto const duration = take(2) == 0 ? Duration::Once : Duration::Sticky;
    auto const operations = operationsOf(sceneKind, kind);
    if (number >= operations) return tally.add("beyond the last operation");
    auto const at = number * 7919 % operations; // a prime that no such number is a multiple of

    auto const scene = sceneKind.make(trial.folder() + "/store");
    scene->prepare();
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
        throw Broken(fmt::format("{}, operation {} of {}, kind {}, {}: {} [{}]", sceneKind.name, at, operations, static_cast<int>(kind),
                                 duration == Duration::Once ? "once" : "sticky", failure.what(), words));
    }
}

void judgeFaults(Tally const& tally) {
    require(tally.of("reported") > 0 && tally.of("survived or waited out") > 0, "no fault was met: {}", tally.text());
}

} // namespace Tessarin::campaigns
