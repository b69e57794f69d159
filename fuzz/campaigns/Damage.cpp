// Files that a disk, a tool or a bad day has changed.
#include "fuzz/campaigns/Damage.h"

#include "fuzz/campaigns/Shelf.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <iterator>
#include <sqlite3.h>

namespace Tessarin::campaigns {
namespace {

namespace fs = std::filesystem;
using Bytes = std::string;

Bytes contentOf(fs::path const& file) {
    std::ifstream input(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(input), {}};
}
void write(fs::path const& file, Bytes const& content) { std::ofstream(file, std::ios::binary) << content; }

/// A sound store: the file, and the log beside it when it was copied while it was open.
struct Sound {
    Bytes file, log;
};

Sound makeSound(int items, bool withLog) {
    Trial place("damage", 0);
    auto const path = place.folder() + "/shelf.db";
    std::optional<Shelf> shelf(path);
    shelf->root->performBlockAndWait([&] {
        Ref<NSManagedObject> batch, last;
        for (int at = 0; at < items; ++at) {
            if (at % 10 == 0) {
                batch = shelf->root->insertNewObject("Batch");
                batch->setValueForKey(at / 10, "number");
            }
            auto const item = shelf->root->insertNewObject("Item");
            item->setValueForKey("item " + std::to_string(at), "label");
            item->setValueForKey(at, "value");
            item->setValueForKey(at / 3.0, "weight");
            item->setValueForKey(Value::date(at * 86400.0), "made");
            if (at % 7 == 0) item->setValueForKey(Value::data(std::as_bytes(std::span(std::string_view(path)))), "picture");
            item->setValueForKey(batch, "batch");
            if (last) item->mutableSetValueForKey("peers").addObject(last);
            last = item;
        }
        saveOrThrow(*shelf->root);
    });
    if (!withLog) shelf.reset();
    return {contentOf(path), withLog ? contentOf(path + "-wal") : Bytes{}};
}

Sound const& soundStore(bool isLarge, bool withLog) {
    static Sound const stores[2][2] = {{makeSound(30, false), makeSound(30, true)},
                                       {makeSound(2000, false), makeSound(2000, true)}};
    return stores[isLarge][withLog];
}

void damageBytes(Trial& trial, Bytes& bytes) {
    if (bytes.empty()) return;
    auto const page = [&] { return trial.random(bytes.size() / 4096 + 1) * 4096; };
    auto const anywhere = [&] {
        return trial.chance(0.3) ? trial.random(std::min<std::size_t>(bytes.size(), 4096)) : trial.random(bytes.size());
    };
    switch (trial.random(8)) {
    case 0: // some bits
    case 1:
        for (auto count = 1 + trial.random(8); count > 0; --count) bytes[anywhere()] ^= static_cast<char>(1 << trial.random(8));
        break;
    case 2: // some bytes
        for (auto count = 1 + trial.random(40); count > 0; --count) bytes[anywhere()] = static_cast<char>(trial.random(256));
        break;
    case 3: { // a page of zeros, or of noise
        auto const from = std::min(page(), bytes.size());
        bool const isNoise = trial.chance(0.5);
        for (auto at = from; at < std::min(from + 4096, bytes.size()); ++at)
            bytes[at] = isNoise ? static_cast<char>(trial.random(256)) : '\0';
        break;
    }
    case 4: bytes.resize(trial.random(bytes.size() + 1)); break;
    case 5: { // one page in another's place
        auto const from = page(), to = page();
        if (std::max(from, to) + 4096 <= bytes.size()) bytes.replace(to, 4096, bytes.substr(from, 4096));
        break;
    }
    case 6: { // a run moved by one
        auto const from = anywhere();
        bytes.insert(from, 1, 'x');
        bytes.pop_back();
        break;
    }
    default: bytes.append(trial.random(9000), static_cast<char>(trial.random(256)));
    }
}

/// What a tool could do to the records without harm to the pages.
void damageRecords(Trial& trial, std::string const& path) {
    static char const* const statements[] = {
        "UPDATE Item SET value = 'many' WHERE id % 3 = 0",
        "UPDATE Item SET value = NULL WHERE id % 5 = 0",
        "UPDATE Item SET weight = x'00ff', made = 'yesterday'",
        "UPDATE Item SET label = x'c328', picture = 'text'",
        "UPDATE Item SET value = 9223372036854775807, label = 12",
        "UPDATE Item SET batch = 999999 WHERE id % 2 = 0",
        "UPDATE Item SET version = 'x' WHERE id % 4 = 0",
        "UPDATE Item SET version = -1",
        "DELETE FROM Batch WHERE id % 2 = 0",
        "DELETE FROM tessarin_metadata",
        "UPDATE tessarin_metadata SET value = '{\"'",
        "UPDATE tessarin_store SET value = 'x' WHERE key = 'model'",
        "DELETE FROM tessarin_store WHERE key = 'nextKey'",
        "UPDATE tessarin_store SET value = 1 WHERE key = 'nextKey'",
        "UPDATE tessarin_store SET value = -5 WHERE key = 'nextKey'",
        "DELETE FROM tessarin_entity",
        "DROP TABLE Batch",
        "ALTER TABLE Item DROP COLUMN weight",
        "DROP TABLE tessarin_store",
        "PRAGMA application_id = 7",
        "PRAGMA journal_mode = DELETE",
    };
    sqlite3* handle = nullptr;
    sqlite3_open(path.c_str(), &handle);
    for (auto count = 1 + trial.random(3); count > 0; --count)
        sqlite3_exec(handle, statements[trial.random(std::size(statements))], nullptr, nullptr, nullptr);
    sqlite3_close(handle);
}

/// Format versions above ours are waited out, whoever wrote them there.
bool isOfNewerFormat(Bytes const& file) {
    for (std::size_t const at : {18, 19}) // of a newer SQLite, for writing or for reading
        if (file.size() > at && static_cast<unsigned char>(file[at]) > 2) return true;
    return file.size() > 63 && (file[60] != 0 || file[61] != 0 || file[62] != 0 || static_cast<unsigned char>(file[63]) > 1);
}

void requireValue(NSManagedObject& object, NSAttributeDescription const& attribute) {
    auto const value = object.valueForKey(attribute.name());
    require(attribute.holdsKindOf(value), "{} holds {}", attribute.name(), value.description());
}

/// Uses all there is, as an application would. Errors are fine; objects that the model does not know are not.
void use(Shelf const& shelf, Tally& tally) {
    auto const attempt = [&](FunctionRef<void()> work) {
        try {
            work();
        } catch (ErrorException const&) { tally.add("errors while it was used"); }
    };
    onQueueOf(*shelf.root, [&] {
        for (auto const* entity : {"Batch", "Item"}) {
            Objects objects;
            attempt([&] { objects = fetched(*shelf.root, entity); });
            for (auto const& object : objects) {
                require(object->entity().name() == entity, "a {} among the {}s", object->entity().name(), entity);
                for (auto const* attribute : object->entity().attributes()) attempt([&] { requireValue(*object, *attribute); });
                for (auto const* relationship : object->entity().relationships())
                    attempt([&] {
                        auto const value = object->valueForKey(relationship->name());
                        require(relationship->isToMany() || value.isAbsent() ||
                                    value.objectAs<NSManagedObject>()->entity().isKindOf(relationship->destinationEntity()),
                                "{} leads elsewhere", relationship->name());
                    });
            }
            attempt([&] {
                if (objects.size() > 2) shelf.root->deleteObject(*objects[1]);
                auto const added = shelf.root->insertNewObject(entity);
                if (std::string_view(entity) == "Item" && !objects.empty()) {
                    added->setValueForKey("added", "label");
                    objects[0]->setValueForKey(7, "value");
                    added->mutableSetValueForKey("peers").addObject(objects[0]);
                }
            });
        }
        attempt([&] { saveOrThrow(*shelf.root); });
    });
}

/// Opening may have changed what can be changed without loss: the mode of the journal, and what stood in the log.
void requireRescued(std::string const& folder, Bytes const& damaged) {
    std::error_code none;
    auto const now = contentOf(folder + "/store/shelf.db");
    for (auto const& place : fs::directory_iterator(folder + "/.store.rescued", none))
        if (auto const kept = contentOf(place.path() / "shelf.db"); kept == damaged || (kept == now && !now.empty())) return;
    throw Broken("the file was refused and no copy of it was kept");
}

} // namespace

void tryDamage(Trial& trial, Tally& tally) {
    auto sound = soundStore(trial.chance(0.3), trial.chance(0.3)); // a copy
    auto const place = trial.folder() + "/store", path = place + "/shelf.db";
    fs::create_directory(place);
    bool const isOfRecords = trial.chance(0.25);
    auto damaged = sound;
    if (!isOfRecords) {
        bool const isLog = !sound.log.empty() && trial.chance(0.6);
        for (auto count = 1 + trial.random(3); count > 0; --count) damageBytes(trial, isLog ? damaged.log : damaged.file);
    }
    write(path, damaged.file);
    if (!damaged.log.empty()) write(path + "-wal", damaged.log);
    if (isOfRecords) damageRecords(trial, path);
    damaged.file = contentOf(path);

    std::optional<Shelf> shelf;
    bool isRefused = false;
    auto opening = std::async(std::launch::async, [&] {
        try {
            shelf.emplace(path);
        } catch (ErrorException const&) { isRefused = true; }
    });
    if (opening.wait_for(std::chrono::seconds(5)) == std::future_status::timeout) {
        // It waits for something to pass: let it.
        fs::remove(path + "-wal");
        fs::remove(path + "-shm");
        write(path + ".new", soundStore(false, false).file);
        fs::rename(path + ".new", path);
        require(opening.wait_for(std::chrono::seconds(60)) == std::future_status::ready, "opening hangs");
        require(isOfNewerFormat(damaged.file), "opening waited for damage to pass");
        tally.add("waited out");
        return;
    }
    tally.add(isRefused ? "refused" : "opened");
    if (isRefused) return requireRescued(trial.folder(), damaged.file);
    use(*shelf, tally);
    shelf.reset();
}

void judgeDamage(Tally const& tally) {
    require(tally.of("refused") > 0 && tally.of("opened") > 0 && tally.of("errors while it was used") > 0,
            "the damage did not bite: {}", tally.text());
}

} // namespace Tessarin::campaigns
