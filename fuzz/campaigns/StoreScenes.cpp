// Scenes of a store: opened, saved, fetched, checkpointed, migrated.
#include "fuzz/campaigns/Scenes.h"

#include "fuzz/campaigns/Batches.h"

#include <chrono>
#include <filesystem>
#include <optional>

namespace Tessarin::campaigns {
namespace {

using FaultyFiles::Kind;
namespace fs = std::filesystem;

constexpr std::int64_t savedBefore = 7;

class StoreScene : public Scene {
protected:
    using Scene::Scene;
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
            // Queues may keep contexts, and so the log, a moment longer than the shelf: a copy has its log to itself.
            for (auto const* ending : {"", "-wal"}) fs::copy_file(filled + ending, filled + ".copy" + ending);
            checkpoint(filled + ".copy");
            require(!fs::exists(filled + ".copy-wal"), "the log was not brought into the file");
        }
        fs::copy_file(filled + ".copy", file());
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
};

class OpenNew : public StoreScene {
    using StoreScene::StoreScene;
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

class OpenOld : public StoreScene {
    using StoreScene::StoreScene;
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
    std::chrono::milliseconds patience(Kind kind) const override {
        kind_ = kind;
        return std::chrono::milliseconds(kind == Kind::Reading ? 130 : 30);
    }
    void check() override {
        requireOnDisk(savedBefore + 1);
        std::uint64_t const most = kind_ == Kind::Full ? 400 : 60; // of a few tries: without space each may fail at many writes
        require(FaultyFiles::failures() < most, "{} failures while it waited: it is tried again without a pause",
                FaultyFiles::failures());
    }
    mutable Kind kind_ = Kind::InputOutput; // of the fault that is under way
    bool copied_ = false;
};

class Save : public StoreScene {
    using StoreScene::StoreScene;
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

class Fetch : public StoreScene {
    using StoreScene::StoreScene;
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
class Checkpoint : public StoreScene {
    using StoreScene::StoreScene;
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

class Migrate : public StoreScene {
    using StoreScene::StoreScene;
    void prepare() override { fill(); }
    void run() override { Shelf const shelf(file(), laterShelfModel()); }
    void check() override {
        requireIntegrity(file());
        Shelf const shelf(file(), laterShelfModel(), Inference::Forbidden);
        onQueueOf(*shelf.root, [&] {
            for (auto const& batch : fetched(*shelf.root, "Batch"))
                require(batch->valueForKey("title") == Value("untitled"), "a default is missing");
        });
        requireContent(shelf, savedBefore, "migrated");
        require(!fs::exists(fs::path(folder_).parent_path() / ".store.rescued"), "a passing fault had the store wiped");
    }
};

} // namespace

std::span<SceneKind const> storeScenes() {
    using enum FaultyFiles::Layer;
    static constexpr SceneKind all[] = {{"open a new store", made<OpenNew>, SQLite}, {"open", made<OpenOld>, SQLite},
                                        {"save", made<Save>, SQLite},                {"fetch", made<Fetch>, SQLite},
                                        {"checkpoint", made<Checkpoint>, SQLite},    {"migrate", made<Migrate>, SQLite}};
    return all;
}

} // namespace Tessarin::campaigns
