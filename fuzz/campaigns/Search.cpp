#include "fuzz/campaigns/Search.h"

#include "Tessarin/platform/foundation/predicates/NSPredicate.h"
#include "Tessarin/platform/objectgraph/context/NSManagedObjectContext.h"
#include "Tessarin/platform/objectgraph/model/ModelBuilder.h"
#include "Tessarin/platform/objectgraph/query/SearchRank.h"

namespace Tessarin::campaigns {
namespace {

constexpr char const* words[] = {"jane",
                                 "Jane",
                                 "JANET",
                                 "wörd",
                                 "word",
                                 "wo\xCC\x88rd",
                                 "Straße",
                                 "STRASSE",
                                 "naïve",
                                 "caf\xC3\xA9",
                                 "東京都庁",
                                 "東京",
                                 "図書館",
                                 "ภาษาไทย",
                                 "привет",
                                 "ПРИВЕТ",
                                 "foo_bar",
                                 "foo.bar",
                                 "don't",
                                 "3.14",
                                 "a",
                                 "ab",
                                 "abc",
                                 "\xEF\xAC\x81sh",
                                 "fish",
                                 "1\xCD\xBE"
                                 "2",
                                 "x\xE2\x89\xA0y",
                                 "\"OR\"",
                                 "NEAR(a)",
                                 "*",
                                 "\xF0\x9F\x98\x80",
                                 "\xFF\xC0",
                                 "and",
                                 "not",
                                 "title:",
                                 "b\xCC\x81"
                                 "ar",
                                 "bar",
                                 "bar\xE3\x81\xAE"};
constexpr char const* between[] = {" ", " ", " ", "  ", ", ", "-", "\n", "", " \xCC\x81", "\xC2\xA0", ";"};

template <std::size_t count> char const* pick(Trial& trial, char const* const (&some)[count]) {
    return some[trial.random(count)];
}

std::string text(Trial& trial, std::uint64_t most) {
    std::string made;
    for (auto more = trial.random(most + 1); more > 0; --more) made += std::string(pick(trial, words)) + pick(trial, between);
    if (!made.empty() && trial.chance(0.3)) made.resize(trial.random(made.size() + 1)); // perhaps within a character
    return made;
}

Ref<NSManagedObjectModel> model() {
    using Type = NSAttributeType;
    return ModelBuilder()
        .entity("Note")
        .attribute("rank", Type::String, {.fullText = true}) // which FTS5 has for itself
        .attribute("text", Type::String, {.fullText = true})
        .attribute("plain", Type::String)
        .attribute("serial", Type::Integer64) // what is not saved has keys of its own in each process
        .toOne("book", "Book", {.inverse = "notes"})
        .toMany("tags", "Note", {.inverse = "tags"})
        .entity("Letter", {.parent = "Note"})
        .attribute("sender", Type::String, {.fullText = true})
        .entity("Book \"x\"")
        .attribute("title \"y\"", Type::String, {.fullText = true})
        .entity("Book")
        .attribute("title", Type::String, {.fullText = true})
        .toMany("notes", "Note", {.inverse = "book"})
        .build();
}

/// The same records over two stores.
struct Twins {
    Ref<NSManagedObjectContext> file, memory;
    std::vector<Ref<NSManagedObjectContext>> both() const { return {file, memory}; }
};

Ref<NSManagedObjectContext> opened(std::string_view type, std::string const& file) {
    auto const coordinator = make<NSPersistentStoreCoordinator>(model());
    Ref<NSError> error;
    coordinator->addPersistentStoreWithType(type, {}, NSURL::fileURLWithPath(file), {}, error);
    require(!error, "a store is refused: {}", error ? error->description() : "");
    auto const context = make<NSManagedObjectContext>(NSManagedObjectContextConcurrencyType::PrivateQueue);
    context->setPersistentStoreCoordinator(coordinator);
    return context;
}

std::vector<Ref<NSManagedObject>> all(NSManagedObjectContext& context, char const* entity) {
    auto const request = make<NSFetchRequest>(entity);
    Ref<NSError> error;
    auto objects = context.executeFetchRequest(*request, error);
    require(!error, "a fetch fails: {}", error ? error->description() : "");
    return objects;
}

void change(Trial& trial, Twins const& twins, Tally& tally) {
    auto const seed = trial.random(1'000'000'000);
    Tally unused;
    for (auto const& context : twins.both()) {
        Trial same("search-change", seed);
        auto const notes = all(*context, "Note"), books = all(*context, "Book");
        auto const kind = same.random(12);
        auto const some = [&](auto const& of) { return of[same.random(of.size())]; };
        auto const fill = [&](NSManagedObject& note) {
            for (auto const* key : {"rank", "text", "plain"})
                if (same.chance(0.7)) note.setValueForKey(Value(text(same, key[0] == 't' ? 30 : 4)), key);
            if (note.entity().name() == "Letter") note.setValueForKey(Value(text(same, 3)), "sender");
            if (!books.empty() && same.chance(0.5)) note.setValueForKey(some(books), "book");
        };
        if (kind < 5 || notes.size() < 5) {
            for (auto more = same.random(8) + 1; more > 0; --more) {
                auto const note = context->insertNewObject(same.chance(0.3) ? "Letter" : "Note");
                note->setValueForKey(static_cast<std::int64_t>(same.random(1'000'000'000)), "serial");
                fill(*note);
            }
            if (same.chance(0.3)) context->insertNewObject("Book")->setValueForKey(Value(text(same, 3)), "title");
        } else if (kind < 8) {
            for (auto more = same.random(5) + 1; more > 0; --more) fill(*some(notes));
        } else if (kind < 9) {
            for (auto more = same.random(5) + 1; more > 0; --more) context->deleteObject(*some(notes));
        } else if (kind < 10) {
            some(notes)->mutableSetValueForKey("tags").addObject(some(notes));
        } else {
            Ref<NSError> error;
            context->save(error);
            require(!error, "a save fails: {}", error ? error->description() : "");
            auto const which = NSPredicate::predicateWithFormat("text FINDS %@", text(same, 1));
            if (kind == 10) {
                auto const request = make<NSBatchUpdateRequest>("Note");
                request->setPredicate(which);
                request->setPropertiesToUpdate({{"text", text(same, 5)}, {"plain", "batch"}});
                context->executeRequest(*request, error);
            } else {
                auto const fetch = make<NSFetchRequest>(same.chance(0.7) ? "Note" : "Letter");
                if (!same.chance(0.1)) fetch->setPredicate(which);
                if (same.chance(0.5)) fetch->setFetchLimit(3);
                context->executeRequest(*make<NSBatchDeleteRequest>(fetch), error);
            }
            require(!error, "a batch fails: {}", error ? error->description() : "");
            context->reset();
            tally.add("batches");
        }
    }
}

/// A piece of a text that is there: comparisons of random texts hardly ever hold.
std::string piece(Trial& trial, Twins const& twins) {
    auto const notes = all(*twins.memory, "Note");
    auto const text = notes.empty() ? std::string() : notes[trial.random(notes.size())]->valueForKey("text").description();
    auto const from = trial.chance(0.5) ? 0 : trial.random(text.size() + 1);
    return text.substr(from, trial.random(20));
}

Ref<NSPredicate> question(Trial& trial, Twins const& twins, int depth = 0) {
    auto const searched = [&] {
        if (trial.chance(0.4)) return Value(piece(trial, twins));
        return Value(trial.chance(0.1) ? std::string("  ") : text(trial, 1 + trial.random(3)));
    };
    auto const format = [&](char const* text) { return NSPredicate::predicateWithFormat(text, searched()); };
    switch (trial.random(depth > 2 ? 10 : 13)) {
    case 0: return format("{#rank, text} FINDS %@");
    case 1: return format("plain FINDS %@");
    case 2: return format("book.title FINDS %@");
    case 3: return format("ANY tags.text FINDS %@");
    case 4: return format("text BEGINSWITH[cd] %@");
    case 5: return format("text CONTAINS[cd] %@");
    case 6: return format("rank ==[cd] %@");
    case 7: return format("text ENDSWITH[cd] %@");
    case 8: return format("{text, plain, book.title} FINDS %@");
    case 9: return format("text FINDS %@");
    case 10: return NSCompoundPredicate::notPredicateWithSubpredicate(question(trial, twins, depth + 1));
    case 11:
        return NSCompoundPredicate::orPredicateWithSubpredicates(
            {question(trial, twins, depth + 1), question(trial, twins, depth + 1)});
    default:
        return NSCompoundPredicate::andPredicateWithSubpredicates(
            {question(trial, twins, depth + 1), question(trial, twins, depth + 1)});
    }
}

std::string answer(NSManagedObjectContext& context, NSFetchRequest const& request, Tally* tally) {
    Ref<NSError> error;
    auto const objects = context.executeFetchRequest(request, error);
    if (error) return error->localizedDescription();
    std::string keys;
    for (auto const& object : objects) keys += object->valueForKey("serial").description() + " ";
    auto const count = context.countForFetchRequest(request, error);
    require(!error && count == static_cast<std::int64_t>(objects.size()), "{} found, {} counted", objects.size(), count);
    if (tally) tally->add(objects.empty() ? "nothing found" : request.sortDescriptors().empty() ? "found" : "ranked", 1);
    return keys;
}

void ask(Trial& trial, Twins const& twins, Tally& tally) {
    auto const request = make<NSFetchRequest>(trial.chance(0.8) ? "Note" : "Letter");
    request->setPredicate(question(trial, twins));
    if (trial.chance(0.4)) request->setSortDescriptors({searchRank()});
    if (trial.chance(0.3)) request->setFetchLimit(1 + trial.random(5));
    if (trial.chance(0.1)) request->setFetchOffset(trial.random(3));
    auto const inFile = answer(*twins.file, *request, &tally), inMemory = answer(*twins.memory, *request, nullptr);
    require(inFile == inMemory, "\"{}\"{}: in the file \"{}\", in memory \"{}\"", request->predicate()->predicateFormat(),
            request->sortDescriptors().empty() ? "" : " by rank", inFile, inMemory);
}

} // namespace

void trySearch(Trial& trial, Tally& tally) {
    auto const place = trial.folder() + "/notes.db";
    Twins twins{opened("SQLite", place), opened("InMemory", "/nowhere")};
    for (int round = 0; round < 30; ++round) {
        for (auto changes = trial.random(3) + 1; changes > 0; --changes) change(trial, twins, tally);
        if (trial.chance(0.6))
            for (auto const& context : twins.both()) {
                Ref<NSError> error;
                require(context->save(error), "a save fails: {}", error ? error->description() : "");
            }
        else
            tally.add("asked unsaved");
        for (int questions = 0; questions < 8; ++questions) ask(trial, twins, tally);
        if (!trial.chance(0.1)) continue;
        Ref<NSError> error;
        twins.file->save(error);
        twins.memory->save(error);
        twins.file = opened("SQLite", place);
        tally.add("reopened");
    }
    Ref<NSError> error;
    twins.file->save(error);
    auto const findings = twins.file->persistentStoreCoordinator()->verify(error);
    require(!error && findings.empty(), "the file is not in order: {}", findings.empty() ? "" : findings.front());
}

void judgeSearch(Tally const& tally) {
    for (auto const* what : {"nothing found", "found", "ranked", "asked unsaved", "batches", "reopened"})
        require(tally.of(what) > 0, "never: {}", what);
}

} // namespace Tessarin::campaigns
