// Stores that no rule brings to the application's model are replaced by empty ones: what they and their logs held is kept.
#include "fuzz/campaigns/PlainWork.h"

#include "fuzz/campaigns/Batches.h"

#include "Tessarin/store/ManagedObjectStore.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace Tessarin::campaigns {
namespace {

namespace fs = std::filesystem;

constexpr std::int64_t saves = 4;
/// A text that every record must have, and no record has.
constexpr char const* otherModel = R"(<?xml version="1.0" encoding="UTF-8"?>
<model><entity name="Item"><attribute name="code" optional="NO" attributeType="String"/></entity></model>)";

/// As a process that was killed leaves it: the last saves are in the log.
void makeStore(fs::path const& file) {
    static Trial const place("rescue", 0);
    auto const filled = place.folder() + "/shelf.db";
    if (!fs::exists(filled + ".copy")) {
        Shelf const shelf(filled);
        auto const worker = shelf.worker();
        for (std::int64_t number = 1; number <= saves; ++number) {
            onQueueOf(*worker, [&] { saveBatch(*worker, number); });
            shelf.saveToDisk(*worker);
            if (number == saves / 2) shelf.checkpoint();
        }
        for (auto const* ending : {"-wal", ""}) fs::copy_file(filled + ending, filled + ending + ".copy");
    }
    for (auto const* ending : {"", "-wal"}) fs::copy_file(filled + ending + ".copy", file.string() + ending);
}

std::string nameOf(std::int64_t number) { return "Shelf" + std::to_string(number); }

/// Whether such a file, with the log beside it, holds all that the store held.
bool isWhole(fs::path const& file) {
    Trial const place("look", 0);
    auto const copy = place.folder() + "/shelf.db";
    for (auto const* ending : {"", "-wal"})
        if (fs::exists(file.string() + ending)) fs::copy_file(file.string() + ending, copy + ending);
    try {
        requireIntegrity(copy);
        return contentOf(Shelf(copy, shelfModel(), Inference::Forbidden)) == contentAfter(saves);
    } catch (std::exception const&) {
        return false;
    }
}

class RescueWork : public PlainWork {
public:
    explicit RescueWork(std::string folder) : PlainWork(std::move(folder), 2) {}

private:
    /// Beside the folder: without a model there is no application.
    std::string model() const { return folder_ + "-model/Model.xcdatamodel"; }

    void prepare() override {
        fs::create_directories(model());
        std::ofstream(model() + "/contents") << otherModel;
        for (std::int64_t number = 1; number <= steps(); ++number) {
            auto const place = folder_ + "/Documents/" + nameOf(number);
            fs::create_directories(place);
            makeStore(place + '/' + nameOf(number) + ".db");
        }
    }

    void step(std::int64_t number) override {
        ::setenv("HOME", folder_.c_str(), 1);
        ::setenv("XDG_CONFIG_HOME", (folder_ + "/.config").c_str(), 1);
        make<ManagedObjectStore>(StoreOptions{.modelURL = NSURL::fileURLWithPath(model()), .filename = nameOf(number)});
    }

    std::optional<std::int64_t> stepIn(std::string const& folder) override {
        for (std::int64_t number = 1; number <= steps(); ++number) {
            bool isFound = false;
            for (auto const& entry : fs::recursive_directory_iterator(folder + "/Documents"))
                isFound = isFound || (entry.path().filename() == nameOf(number) + ".db" && isWhole(entry.path()));
            require(isFound, "what {} held is neither in its place nor among the rescued", nameOf(number));
        }
        return {};
    }
};

} // namespace

std::unique_ptr<PlainWork> makeRescueWork(std::string folder) { return std::make_unique<RescueWork>(std::move(folder)); }

} // namespace Tessarin::campaigns
