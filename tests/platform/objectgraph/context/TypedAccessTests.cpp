// Setting and reading by handle and by subscript, and lists of given identities.
#include "Library.h"
#include "TypedLibrary.h"
#include <ranges>

using namespace Tessarin;
using namespace Tessarin::tests;
using namespace Tessarin::tests::typed;

namespace {

class TypedAccess : public ::testing::Test {
protected:
    Ref<NSManagedObjectContext> context = contextOver(coordinatorOver(typedModel()));
    Ref<Book> book = context->insertObject<Book>();
    Ref<NSError> error;
};

} // namespace

TEST_F(TypedAccess, SettersTakeWhatPeopleWrite) {
    auto const date = NSDate::dateWithTimeIntervalSinceReferenceDate(5);
    std::optional<std::string> const some = "s", nothing;
    std::int64_t const wide = 1LL << 40;
    struct {
        std::function<void()> set;
        char const* key;
        Value expected;
    } const rows[] = {
        {[&] { book->set(Book::title, "Emma"); }, "title", "Emma"},
        {[&] { book->set(Book::title, std::string_view("Emmanuel", 4)); }, "title", "Emma"},
        {[&] { book->set(Book::subtitle, "x"); }, "subtitle", "x"},
        {[&] { book->set(Book::subtitle, nullptr); }, "subtitle", nullptr},
        {[&] { book->set(Book::subtitle, some); }, "subtitle", "s"},
        {[&] { book->set(Book::subtitle, nothing); }, "subtitle", nullptr},
        {[&] { book->set(Book::year, 1815); }, "year", 1815},
        {[&] { book->set(Book::year, wide); }, "year", wide},
        {[&] { book->set(Book::pages, 2147483647L); }, "pages", 2147483647},
        {[&] { book->set(Book::price, 5); }, "price", 5.0},
        {[&] { book->set(Book::price, 1.5F); }, "price", 1.5},
        {[&] { book->set(Book::cost, 7); }, "cost", Decimal(7)},
        {[&] { book->set(Book::isDraft, true); }, "isDraft", true},
        {[&] { book->set(Book::bought, date); }, "bought", date},
        {[&] { book->set(Book::bought, std::nullopt); }, "bought", nullptr},
    };
    for (auto const& row : rows) {
        row.set();
        EXPECT_EQ(book->valueForKey(row.key), row.expected) << row.key;
    }
    auto const author = context->insertObject<Author>();
    auto const novel = context->insertObject<Novel>();
    author->add(Author::books, novel);
    EXPECT_EQ(novel->get(Book::author), author);
    novel->set(Book::author, nullptr);
    EXPECT_TRUE(author->get(Author::books).empty());
    EXPECT_DEATH(author->NSManagedObject::get(Book::title), "the entity Author has no property \"title\"");
}

// A later model may have another property where one of theirs was.
TEST_F(TypedAccess, HandlesRememberNothingOfModelsThatAreGone) {
    static Attribute<std::string> const handles[] = {Attribute<std::string>{"a"}, Attribute<std::string>{"b"},
                                                     Attribute<std::string>{"c"}, Attribute<std::string>{"d"}};
    for (std::size_t round = 0; round < 100; ++round) {
        ModelBuilder builder;
        builder.entity("Page");
        for (std::size_t at = 0; at < 4; ++at)
            builder.attribute(std::string(handles[(at + round) % 4].name()), NSAttributeType::String);
        auto const model = builder.build();
        for (auto const& handle : handles) EXPECT_EQ(handle.in(*model->entityNamed("Page")).name(), handle.name());
    }
}

TEST_F(TypedAccess, ASubscriptReadsAsWhatItIsKeptIn) {
    auto& b = *book;
    b["title"] = "Emma", b["year"] = 1815, b["price"] = 2.5;
    std::string title = b["title"];
    title = b["title"];
    std::int64_t const year = b["year"];
    double const price = b["price"], none = b["title"];
    std::string const subtitle = b["subtitle"];
    Ref<Author> const author = b["author"];
    EXPECT_EQ(title, "Emma");
    EXPECT_EQ(year, 1815);
    EXPECT_EQ(price, 2.5);
    EXPECT_EQ(none, 0) << "a text is no number";
    EXPECT_EQ(subtitle, "");
    EXPECT_EQ(b["bought"].get().as<NSDate>(), std::nullopt);
    EXPECT_EQ(book->get(Tessarin::Attribute<NSDate>("bought")), NSDate::dateWithTimeIntervalSinceReferenceDate(0)) << "not now";
    EXPECT_FALSE(author);
    EXPECT_TRUE(b["title"] == "Emma" && b["subtitle"] == nullptr && b["title"] != nullptr);
}

TEST_P(LibraryTest, AListOfIdentitiesMakesItsObjectsInBatches) {
    std::vector<Ref<NSManagedObjectID>> ids;
    std::string expected;
    for (int at = 0; at < 20; ++at) {
        auto const title = std::to_string(100 + at);
        bool const isBook = at % 5 != 4;
        auto const object = inserted(*root, isBook ? (at % 2 ? "Book" : "Novel") : "Tag", {{isBook ? "title" : "name", title}});
        ids.push_back(object->objectID());
        expected = title + " " + expected;
    }
    ASSERT_TRUE(saves(*root));
    ids.push_back(inserted(*root, "Book", {{"title", "new"}})->objectID());
    expected = "new " + expected;
    Library const other("InMemory");
    ids.insert(ids.begin() + 3, inserted(*other.root, "Book", {})->objectID());
    std::ranges::reverse(ids);
    root->refreshAllObjects();
    root->performBlockAndWait([&] {
        auto const list = root->objectsWithIDs(ids, 4);
        ASSERT_EQ(list.size(), 21u) << "the other store's is left out";
        std::string found;
        for (auto const& each : list)
            found += std::string((*each)[each->hasPropertyForKey("title") ? "title" : "name"].get().text()) + " ";
        EXPECT_EQ(found, expected);
        EXPECT_EQ(list[0]->objectID(), ids[0]);
        EXPECT_TRUE(root->objectsWithIDs({}).empty());
    });
}
INSTANTIATE_TEST_SUITE_P(Stores, LibraryTest, bothStores, storeName);
