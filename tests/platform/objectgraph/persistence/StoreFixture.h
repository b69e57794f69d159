#pragma once
#include "Tessarin/platform/objectgraph/model/ModelBuilder.h"
#include "Tessarin/platform/objectgraph/persistence/memory/InMemoryStorePrivate.h"
#include "Tessarin/platform/objectgraph/persistence/rows/RowBuilderPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteStorePrivate.h"
#include "tests/support/TemporaryFolder.h"
#include <algorithm>
#include <iterator>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Tessarin::tests {

inline std::vector<RecordKey> keysOf(std::vector<RowRef> const& rows) {
    std::vector<RecordKey> keys;
    for (auto const& row : rows) keys.push_back(row->key());
    return keys;
}

/// A library: books with an author and many tags, and authors with an ordered shelf.
inline ModelBuilder libraryModel() {
    return std::move(ModelBuilder()
                         .entity("Author")
                         .attribute("name", NSAttributeType::String, {.indexed = true})
                         .toMany("books", "Book", {.inverse = "author"})
                         .toMany("shelf", "Book", {.inverse = "shelvedBy", .ordered = true})
                         .entity("Book")
                         .attribute("code", NSAttributeType::String, {.indexed = true})
                         .attribute("year", NSAttributeType::Integer32)
                         .attribute("price", NSAttributeType::Double)
                         .toOne("author", "Author", {.inverse = "books"})
                         .toOne("shelvedBy", "Author", {.inverse = "shelf"})
                         .toMany("tags", "Tag", {.inverse = "books", .ordered = true})
                         .unique({"code"})
                         .entity("Tag")
                         .attribute("name", NSAttributeType::String)
                         .toMany("books", "Book", {.inverse = "tags"})
                         .toMany("friends", "Tag", {.inverse = "friends"}));
}

/// One open store with what it needs, and short ways to write and read records.
class OpenStore {
public:
    enum class Kind { SQLite, Memory };
    OpenStore(NSURL const& file, Ref<NSManagedObjectModel> model, Kind kind = Kind::SQLite)
        : space(std::make_shared<RowSpace>(std::move(model))) {
        if (kind == Kind::SQLite)
            store = SQLiteStore::open(file, space, {}, error);
        else
            store = InMemoryStore::open(file, space);
    }

    NSEntityDescription const& entity(std::string_view name) const { return *space->model().entityNamed(name); }
    RecordKey newKey() {
        auto const key = store->reserveKeys(1, error);
        EXPECT_FALSE(error);
        return key;
    }

    /// A row with these attributes, and to-one relationships as the integer of their keys; made on `before` when there is one.
    RowRef row(std::string_view entityName, RecordKey key, Dictionary const& values, RowRef const& before = {}) const {
        auto const& layout = space->layoutOf(entity(entityName));
        RowBuilder builder;
        if (before)
            builder.begin(*before, before->version() + 1);
        else
            builder.begin(layout, key, 1);
        for (auto const& [name, value] : values) {
            auto const* property = entity(entityName).propertyNamed(name);
            auto const cell = static_cast<std::size_t>(layout.cellOf(property->index()));
            if (property->asRelationship())
                builder.setReference(cell, value.integer());
            else
                EXPECT_TRUE(builder.setValue(cell, value)) << name;
        }
        return builder.finish();
    }
    RecordChange insertion(std::string_view entityName, RecordKey key, Dictionary const& values) const {
        return {
            .kind = RecordChange::Kind::Insert, .key = key, .entity = &entity(entityName), .after = row(entityName, key, values)};
    }
    RecordChange update(RowRef const& before, Dictionary const& values) const {
        return {.kind = RecordChange::Kind::Update,
                .key = before->key(),
                .entity = &before->entity(),
                .before = before,
                .after = values.empty() ? before : row(before->entity().name(), before->key(), values, before)};
    }
    RecordChange deletion(RowRef const& before) const {
        return {.kind = RecordChange::Kind::Delete, .key = before->key(), .entity = &before->entity(), .before = before};
    }
    RelationshipChange links(std::string_view entityName, std::string_view name, std::vector<RecordKey> added,
                             std::vector<RecordKey> removed = {}, std::optional<std::vector<RecordKey>> order = {}) const {
        return {entity(entityName).propertyNamed(name)->asRelationship(), std::move(added), std::move(removed), std::move(order)};
    }

    Ref<NSError> save(std::vector<RecordChange> changes) {
        Ref<ChangeSet const> const set = std::make_shared<ChangeSet>(space, std::move(changes));
        return store->save({&set, 1}, storeWins, outcome);
    }

    static Ref<NSError> storeWins(std::span<RowConflict> conflicts) {
        for (auto& conflict : conflicts) conflict.final = resolvedRow(conflict, NSMergePolicyType::MergeByPropertyStoreTrump);
        return nullptr;
    }

    std::vector<RowRef> fetch(std::string_view entityName) {
        StoreAnswer answer;
        EXPECT_FALSE(store->fetch({.entity = &entity(entityName)}, answer));
        return answer.rows;
    }
    RowRef read(std::string_view entityName, RecordKey key) {
        RowRef found;
        EXPECT_FALSE(store->rows(entity(entityName), {&key, 1}, [&](RowRef row) { found = std::move(row); }));
        return found;
    }
    std::vector<RecordKey> members(std::string_view entityName, std::string_view name, RecordKey owner) {
        std::vector<RecordKey> found;
        EXPECT_FALSE(store->members(*entity(entityName).propertyNamed(name)->asRelationship(), {&owner, 1},
                                    [&](RecordKey, RecordKey member) { found.push_back(member); }));
        return found;
    }
    static RecordKey reference(RowRef const& row, std::string_view name) {
        return row->integer(static_cast<std::size_t>(row->layout().cellOf(row->entity().propertyNamed(name)->index())));
    }
    Value value(RowRef const& row, std::string_view name) const {
        auto const cell = row->layout().cellOf(row->entity().propertyNamed(name)->index());
        return row->value(static_cast<std::size_t>(cell));
    }

    Ref<RowSpace> space;
    Ref<NSError> error; // of opening, or of the last key
    Ref<NSPersistentStore> store;
    SaveOutcome outcome;
};

/// A folder with one for a store in it, beside which copies of what is refused are kept.
class StoreInItsFolder : public testing::Test {
protected:
    void SetUp() override { std::filesystem::create_directory(place.parent_path()); }
    std::size_t rescued() const {
        std::error_code none;
        return static_cast<std::size_t>(
            std::distance(std::filesystem::directory_iterator(folder.path(".Notes.rescued"), none), {}));
    }
    /// The status of a child process that is nobody in particular, once `meanwhile` is done here: the superuser may do
    /// everything.
    static int statusOfNobody(FunctionRef<int()> work, FunctionRef<void()> meanwhile = [] {}) {
        auto const child = ::fork();
        if (child == 0) ::_exit(::setgid(65534) != 0 || ::setuid(65534) != 0 ? 9 : work());
        meanwhile();
        int status = 0;
        ::waitpid(child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    TemporaryFolder folder;
    std::filesystem::path const place = folder.path("Notes/Notes.db");
    NSURL const url = NSURL::fileURLWithPath(place.native());
    Ref<NSError> error;
};

} // namespace Tessarin::tests
