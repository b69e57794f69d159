// Random edits over root, main and two workers, of a second coordinator of the same file, and in batches; live lists of all
// kinds, in the main and the root context, against a copy that applies what they tell, and against fetches.
#include "fuzz/campaigns/Live.h"

#include "Tessarin/platform/foundation/notifications/NSNotificationCenter.h"
#include "fuzz/campaigns/LiveMirror.h"
#include "fuzz/campaigns/Shelf.h"
#include "fuzz/campaigns/Trace.h"

#include <deque>
#include <map>

namespace Tessarin::campaigns {
namespace {

Ref<NSManagedObjectModel> const& model() {
    using Type = NSAttributeType;
    static auto const shared = ModelBuilder()
                                   .entity("Publisher")
                                   .attribute("name", Type::String)
                                   .toMany("authors", "Author", {.inverse = "publisher"})
                                   .entity("Author")
                                   .attribute("name", Type::String, {.indexed = true})
                                   .toMany("books", "Book", {.inverse = "author"})
                                   .toOne("publisher", "Publisher", {.inverse = "authors"})
                                   .entity("Book")
                                   .attribute("title", Type::String, {.indexed = true})
                                   .attribute("year", Type::Integer32)
                                   .toOne("author", "Author", {.inverse = "books"})
                                   .toMany("tags", "Tag", {.inverse = "books"})
                                   .entity("Novel", {.parent = "Book"})
                                   .attribute("genre", Type::String)
                                   .entity("Tag")
                                   .attribute("name", Type::String)
                                   .toMany("books", "Book", {.inverse = "tags"})
                                   .build();
    return shared;
}

class Live {
public:
    Live(Trial& trial, Tally& tally)
        : trial_(trial),
          tally_(tally),
          file_(trial.folder() + "/live.db"),
          shelf_(file_, model()),
          other_(file_, model()) {
        for (auto const& context : {shelf_.root, shelf_.main})
            context->setMergePolicy(make<NSMergePolicy>(NSMergePolicyType::MergeByPropertyStoreTrump));
        contexts_ = {shelf_.main, shelf_.root, shelf_.worker(), shelf_.worker()};
        makeLists(shelf_.main, "main");
        makeLists(shelf_.root, "root");
        token_ = NSNotificationCenter::defaultCenter()->addObserverForName(
            NSManagedObjectContextDidSaveNotification, nullptr, nullptr, [this](auto const& note) { tellOthers(note); });
    }
    ~Live() { NSNotificationCenter::defaultCenter()->removeObserver(*token_); }

    void run() {
        for (int step = 0; step < 60; ++step) {
            auto const what = act();
            trace(fmt::format("{}: {}", step, what));
            for (auto const& context : contexts_) onQueueOf(*context, [] {}); // what was told them is there
            for (auto& [context, mirrors] : mirrors_)
                onQueueOf(*context, [&] {
                    for (auto& mirror : mirrors) mirror.check(fmt::format("step {}, {}", step, what), tally_);
                });
        }
    }

private:
    void makeLists(Ref<NSManagedObjectContext> const& context, std::string const& of) {
        struct Kind {
            char const* name;
            char const* predicate;
            std::vector<Ref<NSSortDescriptor>> order;
            LiveOptions options;
            std::size_t limit = 0;
        };
        auto const by = [](char const* key, SortOptions options = {}) {
            return NSSortDescriptor::sortDescriptorWithKey(key, options);
        };
        Kind const kinds[] = {
            {"all", nullptr, {}, {}},
            {"by title", nullptr, {by("title")}, {.shownKeyPaths = {"author.publisher.name"}}},
            {"of a publisher", "author.publisher.name == 'p1' AND year > 3", {by("year", {.ascending = false}), by("title")}, {}},
            {"by author", nullptr, {by("author.name"), by("title")},
             {.sectionKeyPath = "author.name", .shownKeyPaths = {"author.name"}}},
            {"in sections", "year != 5", {by("title", {.comparison = TextComparison::CaseInsensitive})},
             {.sectionKeyPath = "year", .shownKeyPaths = {"author.name"}}},
            {"with a tag", "ANY tags.name == 't1'", {by("title")}, {}},
            {"the first", nullptr, {by("title")}, {}, 4},
        };
        auto& mirrors = mirrors_[context];
        onQueueOf(*context, [&] {
            for (auto const& kind : kinds) {
                auto const request = make<NSFetchRequest>("Book");
                if (kind.predicate) request->setPredicate(NSPredicate::predicateWithFormat(kind.predicate));
                request->setSortDescriptors(kind.order);
                request->setFetchLimit(kind.limit);
                mirrors.emplace_back(of + ", " + kind.name, context, request, kind.options);
            }
        });
    }

    /// Who has saved is merged into those that it is not below.
    void tellOthers(Ref<NSNotification> const& note) {
        for (auto const& context : contexts_)
            if (context != shelf_.root && context != note->object() && (context != shelf_.main || note->object() == shelf_.root))
                context->performBlock([context, note] { context->mergeChangesFromContextDidSaveNotification(*note); });
    }

    std::string act() {
        auto const& context = contexts_[trial_.random(contexts_.size())];
        auto const kind = trial_.random(17);
        if (kind == 0) return changeElsewhere();
        if (kind == 1) return changeInBatch();
        std::string what;
        // What is unsaved above is shown to whoever reads, but nobody is told of it.
        bool const savesAtOnce = context == shelf_.root;
        onQueueOf(*context, [&] {
            bool const changes = kind < 10;
            if (changes)
                for (auto count = 1 + trial_.random(4); count > 0; --count) what += change(*context) + ", ";
            if (changes ? savesAtOnce : kind < 14)
                what += save(*context);
            else if (kind == 14)
                context->rollback(), what = "rollback";
            else if (kind == 15)
                context->refreshAllObjects(), what = "refresh";
            else if (kind == 16)
                context->reset(), what = "reset";
        });
        return what + (context == shelf_.root ? " in root" : context == shelf_.main ? " in main" : " in a worker");
    }

    std::string save(NSManagedObjectContext& context) {
        Ref<NSError> error;
        tally_.add(context.save(error) ? "saves" : "refused");
        return error ? error->localizedDescription() : "save";
    }

    Ref<NSManagedObject> any(NSManagedObjectContext& context, char const* entity) {
        auto const all = fetched(context, entity);
        if (all.empty() || trial_.chance(0.1)) return context.insertNewObject(entity);
        return all[trial_.random(all.size())];
    }
    Value text(char const* prefix, std::uint64_t count) { return Value(fmt::format("{}{}", prefix, trial_.random(count))); }

    /// One change, told as "author of 3 is 5".
    std::string change(NSManagedObjectContext& context) {
        auto const set = [&](char const* entity, char const* key, Value value) {
            auto const object = any(context, entity);
            auto const to = value.objectAs<NSManagedObject>();
            auto what = fmt::format("{} of {} is {}", key, object->recordKey(),
                                    to ? fmt::to_string(to->recordKey()) : value.description());
            object->setValueForKey(std::move(value), key);
            return what;
        };
        auto const number = [this] { return Value(std::int64_t(trial_.random(9))); };
        switch (trial_.random(12)) {
        case 0: {
            auto const book = context.insertNewObject(trial_.chance(0.3) ? "Novel" : "Book");
            book->setValueForKey(text("b", 12), "title");
            book->setValueForKey(number(), "year");
            if (trial_.chance(0.7)) book->setValueForKey(Value(any(context, "Author")), "author");
            return fmt::format("book {}", book->recordKey());
        }
        case 1: return set("Book", "title", text(trial_.chance(0.5) ? "b" : "B", 12));
        case 2: return set("Book", "year", number());
        case 3: return set("Book", "author", Value(any(context, "Author")));
        case 4: return set("Book", "author", Value());
        case 5: return set("Author", "name", text("a", 4));
        case 6: return set("Author", "publisher", Value(any(context, "Publisher")));
        case 7: return set("Publisher", "name", text("p", 3));
        case 8: return set("Tag", "name", text("t", 3));
        case 9: {
            auto const book = any(context, "Book"), tag = any(context, "Tag");
            book->mutableSetValueForKey("tags").addObject(tag);
            return fmt::format("{} with tag {}", book->recordKey(), tag->recordKey());
        }
        case 10: {
            auto const tag = any(context, "Tag"), book = any(context, "Book");
            tag->mutableSetValueForKey("books").removeObject(book);
            return fmt::format("{} without tag {}", book->recordKey(), tag->recordKey());
        }
        default: {
            static constexpr char const* entities[] = {"Book", "Book", "Author", "Publisher", "Tag"};
            auto const object = any(context, entities[trial_.random(5)]);
            context.deleteObject(*object);
            return fmt::format("{} {} is deleted", object->entity().name(), object->recordKey());
        }
        }
    }

    ObjectIDsByChange hereOf(ObjectIDsByChange const& there) {
        ObjectIDsByChange here;
        for (auto const& [kind, ids] : there)
            for (auto const& id : ids)
                if (auto own = shelf_.coordinator->managedObjectIDForURIRepresentation(id->URIRepresentation()))
                    here[kind].push_back(own);
        return here;
    }

    std::string changeElsewhere() {
        auto const context = make<NSManagedObjectContext>(NSManagedObjectContextConcurrencyType::PrivateQueue);
        context->setPersistentStoreCoordinator(other_.coordinator);
        context->setMergePolicy(make<NSMergePolicy>(NSMergePolicyType::MergeByPropertyStoreTrump));
        ObjectIDsByChange ids;
        auto const token = NSNotificationCenter::defaultCenter()->addObserverForName(
            NSManagedObjectContextDidSaveNotification, context, nullptr, [&](auto const& note) {
                for (auto const* kind : {NSInsertedObjectsKey, NSUpdatedObjectsKey, NSDeletedObjectsKey})
                    for (auto const& object : note->userInfo().dictionary()[kind].set())
                        ids[kind].push_back(object.template objectAs<NSManagedObject>()->objectID());
            });
        std::string what;
        onQueueOf(*context, [&] {
            for (auto changes = 1 + trial_.random(4); changes > 0; --changes) what += change(*context) + ", ";
            what += save(*context);
        });
        NSNotificationCenter::defaultCenter()->removeObserver(*token);
        NSManagedObjectContext::mergeChangesFromRemoteContextSave(hereOf(ids), std::vector{shelf_.root});
        onQueueOf(*shelf_.root, [] {});
        return what + " elsewhere";
    }

    std::string changeInBatch() {
        Ref<NSError> error;
        ObjectIDsByChange ids;
        bool const deletes = trial_.chance(0.4), deletesAll = deletes && trial_.chance(0.1);
        onQueueOf(*shelf_.root, [&] {
            auto& root = *shelf_.root;
            auto const where = NSPredicate::predicateWithFormat("year == %d", static_cast<int>(trial_.random(9)));
            if (deletes) {
                auto const fetch = make<NSFetchRequest>(trial_.chance(0.8) ? "Book" : "Author");
                auto const named = NSPredicate::predicateWithFormat("name == 'a1'");
                if (!deletesAll) fetch->setPredicate(fetch->entityName() == "Book" ? where : named);
                auto const request = make<NSBatchDeleteRequest>(fetch);
                request->setResultType(NSBatchDeleteRequestResultType::ObjectIDs);
                if (auto const result = root.executeRequest(*request, error)) ids[NSDeletedObjectsKey] = result->objectIDs();
            } else {
                auto const request = make<NSBatchUpdateRequest>("Book");
                request->setPredicate(where);
                request->setPropertiesToUpdate({{"year", std::int64_t(trial_.random(9))}});
                request->setResultType(NSBatchUpdateRequestResultType::ObjectIDs);
                if (auto const result = root.executeRequest(*request, error)) ids[NSUpdatedObjectsKey] = result->objectIDs();
            }
        });
        require(!error, "a batch request fails: {}", error ? error->localizedDescription() : "");
        NSManagedObjectContext::mergeChangesFromRemoteContextSave(ids, std::vector{shelf_.root});
        onQueueOf(*shelf_.root, [] {});
        tally_.add("batches");
        return deletesAll ? "all deleted in batch" : deletes ? "deleted in batch" : "updated in batch";
    }

    Trial& trial_;
    Tally& tally_;
    std::string file_;
    Shelf shelf_, other_;
    std::vector<Ref<NSManagedObjectContext>> contexts_;
    std::map<Ref<NSManagedObjectContext>, std::deque<LiveMirror>> mirrors_;
    Ref<NSObject> token_;
};

} // namespace

void tryLive(Trial& trial, Tally& tally) { Live(trial, tally).run(); }

void judgeLive(Tally const& tally) {
    for (auto const* what : {"checks", "tellings", "moves", "sections", "saves", "batches"})
        require(tally.of(what) != 0, "no {}", what);
}

} // namespace Tessarin::campaigns
