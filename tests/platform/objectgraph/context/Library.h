#pragma once
#include "Tessarin/platform/objectgraph/context/OverruledChanges.h"
#include "Tessarin/platform/objectgraph/model/ModelBuilder.h"
#include "Tessarin/platform/queues/Dispatch.h"
#include "tests/support/Contexts.h"
#include "tests/support/TemporaryFolder.h"
#include <functional>

namespace Tessarin::tests {

/// One model for all, so that identities of different coordinators have but their coordinator to differ in.
inline Ref<NSManagedObjectModel> const& libraryModel() {
    using Type = NSAttributeType;
    static auto const& shared = *new Ref<NSManagedObjectModel>(ModelBuilder()
        .entity("Author")
        .attribute("name", Type::String, {.optional = false, .indexed = true})
        .attribute("rating", Type::Double, {.minimum = 0, .maximum = 10})
        .toMany("books", "Book", {.inverse = "author", .deleteRule = NSDeleteRule::Nullify})
        .toMany("awards", "Award", {.inverse = "winner", .deleteRule = NSDeleteRule::Deny})
        .entity("Book")
        .attribute("title", Type::String)
        .attribute("year", Type::Integer16, {.defaultValue = 1900})
        .attribute("draft", Type::String, {.transient = true})
        .attribute("cover", Type::Transformable)
        .toOne("author", "Author", {.inverse = "books"})
        .toMany("tags", "Tag", {.inverse = "books"})
        .toMany("chapters", "Chapter", {.inverse = "book", .deleteRule = NSDeleteRule::Cascade, .ordered = true})
        .toMany("related", "Book", {.inverse = "related"})
        .entity("Novel", {.parent = "Book"})
        .attribute("genre", Type::String)
        .entity("Tag")
        .attribute("name", Type::String)
        .toMany("books", "Book", {.inverse = "tags"})
        .toOne("icon", "Icon", {.inverse = "tag", .deleteRule = NSDeleteRule::Cascade})
        .entity("Icon")
        .attribute("name", Type::String)
        .unique({"name"})
        .toOne("tag", "Tag", {.inverse = "icon"})
        .entity("Chapter")
        .attribute("title", Type::String)
        .toOne("book", "Book", {.inverse = "chapters"})
        .entity("Award")
        .attribute("name", Type::String)
        .toOne("winner", "Author", {.inverse = "awards"})
        .build());
    return shared;
}

/// A root context over a fresh store of either type; or over the file of another library.
class Library {
public:
    explicit Library(char const* storeType, Library const* other = nullptr)
        : folder(other ? other->folder : std::make_shared<TemporaryFolder>()) {
        coordinator = coordinatorOver(libraryModel(), storeType, NSURL::fileURLWithPath(file()));
        root = contextOver(coordinator);
    }

    std::string file() const { return folder->path("library.db"); }
    Ref<NSManagedObjectContext> worker() const { return childOf(root); }

    std::shared_ptr<TemporaryFolder> folder;
    Ref<NSPersistentStoreCoordinator> coordinator;
    Ref<NSManagedObjectContext> root;
};

/// What merge policies give up, told by any context while it lives: "own title ours>theirs; theirs year 2>1; own deletion".
class OverruleLog {
public:
    /// Since the last time; each told once and on the queue of the context that posts.
    std::string text() {
        std::string all;
        std::ranges::sort(pieces_);
        for (auto const& piece : std::exchange(pieces_, {})) all += (all.empty() ? "" : "; ") + piece;
        return std::exchange(times_, 0) > 1 ? "several times: " + all : all;
    }

private:
    static std::string shown(Value const& value) {
        if (value.isAbsent()) return "-";
        auto const object = value.objectAs<NSManagedObject>();
        return (object ? object->valueForKey("name") : value).description();
    }
    void note(NSNotification const& notification) {
        auto const context = std::static_pointer_cast<NSManagedObjectContext>(notification.object());
        EXPECT_TRUE(queueIsHeld(context->queue()));
        ++times_;
        for (auto const& each : overruledChanges(notification)) {
            EXPECT_TRUE(each.object->isDeleted() || each.object->managedObjectContext() == context);
            auto const values = each.attribute + " " + shown(each.lost) + ">" + shown(each.won);
            pieces_.push_back((each.isOwn ? "own " : "theirs ") + (each.attribute.empty() ? "deletion" : values));
        }
    }
    int times_ = 0;
    std::vector<std::string> pieces_;
    std::shared_ptr<void> listener_ = listening(nullptr, NSManagedObjectContextDidOverruleChangesNotification,
                                                [this](auto const& notification) { note(*notification); });
};

/// What a test asks of either kind of store: INSTANTIATE_TEST_SUITE_P(Stores, MyTest, bothStores, storeName).
class LibraryTest : public ::testing::TestWithParam<char const*> {
protected:
    Library library{GetParam()};
    Ref<NSManagedObjectContext> const root = library.root;
    Ref<NSError> error;
};
inline auto const bothStores = ::testing::Values("InMemory", "SQLite");
inline std::string storeName(::testing::TestParamInfo<char const*> const& each) { return each.param; }

/// Adds up what both sides added to a number; the rest is the store's. `meanwhile` runs at the first conflict.
class SummingPolicy : public NSMergePolicy {
public:
    bool resolveConflicts(std::vector<Ref<NSMergeConflict>> const& conflicts, Ref<NSError>& error) override {
        if (auto const work = std::exchange(meanwhile, nullptr)) work();
        if (!NSMergePolicy::resolveConflicts(conflicts, error)) return false;
        for (auto const& each : conflicts) {
            if (!each->uniqueProperties().empty()) continue;
            auto const mine = each->sourceObject()->valueForKey(key_).integer();
            auto const theirs = (*each->persistedSnapshot())[key_].integer();
            each->setResolvedValue(mine + theirs - each->objectSnapshot()[key_].integer(), key_);
        }
        return true;
    }
    std::function<void()> meanwhile;

    using NSMergePolicy::init;
    virtual void init(std::string key) {
        init(NSMergePolicyType::MergeByPropertyStoreTrump);
        key_ = std::move(key);
    }

private:
    std::string key_;
};

} // namespace Tessarin::tests
