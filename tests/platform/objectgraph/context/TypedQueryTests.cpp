// Queries and conditions written with property handles.
#include "TypedLibrary.h"
#include "tests/support/TemporaryFolder.h"
#include <algorithm>
#include <ranges>

using namespace Tessarin;
using namespace Tessarin::tests;
using namespace Tessarin::tests::typed;

namespace {

class TypedQueries : public ::testing::Test {
protected:
    TypedQueries() {
        coordinator = coordinatorOver(typedModel(), "SQLite", NSURL::fileURLWithPath(folder.path("library.db")));
        context = contextOver(coordinator);
        jane = context->insertObject<Author>();
        jane->set(Author::name, std::string("Jane"));
        for (int at = 0; at < 6; ++at) {
            auto const book = at < 4 ? context->insertObject<Book>() : Ref<Book>(context->insertObject<Novel>());
            book->setValueForKey(titles[at], "title");
            book->setValueForKey(1800 + at, "year");
            book->setValueForKey(at % 2 == 0, "isDraft");
            if (at < 3) book->setValueForKey(Value(jane), "author");
        }
        context->performBlockAndWait([&] { EXPECT_TRUE(context->save(error)); });
    }
    static constexpr char const* titles[] = {"emma", "Äther", "Persuasion", "Mummy", "Zoo", "Abbey"};

    TemporaryFolder folder;
    Ref<NSPersistentStoreCoordinator> coordinator;
    Ref<NSManagedObjectContext> context;
    Ref<Author> jane;
    Ref<NSError> error;
};

std::string titlesOf(auto&& books) {
    std::string text;
    for (auto const& book : books) text += (text.empty() ? "" : ",") + book->get(Book::title);
    return text;
}

} // namespace

TEST_F(TypedQueries, AConditionIsThePredicateOfItsFormat) {
    auto const name = Book::author / Author::name;
    auto const date = NSDate::dateWithTimeIntervalSinceReferenceDate(5);
    auto const code = NSUUID::UUID();
    std::optional<std::string> const some = "x", nothing;
    std::vector<Ref<Author>> const authors{jane};
    auto const book = context->fetch<Book>().first();
    struct {
        Ref<NSPredicate> typed, parsed;
    } const rows[] = {
        {name == "Jane" && Book::year > 1800 && Book::title.contains("mm", caseInsensitive),
         where("author.name == 'Jane' AND year > 1800 AND title CONTAINS[c] 'mm'")},
        {Book::year == 1 || Book::year != 2.5 || (Book::year < 3 && Book::year <= 4) || Book::year >= std::uint16_t{5},
         where("year == 1 OR year != 2.5 OR (year < 3 AND year <= 4) OR year >= 5")},
        {(Book::year == 1 || Book::year == 2) && !(Book::year == 3), where("(year == 1 OR year == 2) AND NOT year == 3")},
        {Book::year == 1 && (Book::year == 2 && Book::year == 3), where("year == 1 AND (year == 2 AND year == 3)")},
        {1800 < Book::year, where("year > 1800")},
        {"a" >= Book::title, where("title <= 'a'")},
        {Book::year.between(1, 2), where("year BETWEEN {1, 2}")},
        {Book::title.beginsWith(std::string("a"), caseInsensitive | diacriticInsensitive), where("title BEGINSWITH[cd] 'a'")},
        {Book::title.endsWith(Text("a"), diacriticInsensitive), where("title ENDSWITH[d] 'a'")},
        {Book::title.like("a*") && Book::title.matches("a.") && Book::title.equals("e", caseInsensitive),
         where("title LIKE 'a*' AND title MATCHES 'a.' AND title ==[c] 'e'")},
        {Book::year.in({1, 2}), where("year IN {1, 2}")},
        {Book::title.in({"a", "b"}), where("title IN {'a', 'b'}")},
        {Book::title.in(std::vector{std::string("a")}), where("title IN {'a'}")},
        {Book::author.in(authors), where("author IN %@", authors)},
        {Book::bought.isNil() || Book::title == nullptr || Book::author != nullptr || Book::title.isNotNil(),
         where("bought == nil OR title == nil OR author != nil OR title != nil")},
        {Book::subtitle == some || Book::subtitle == nothing, where("subtitle == 'x' OR subtitle == nil")},
        {Book::isDraft && !Book::isDraft && Book::isDraft == false,
         where("isDraft == YES AND NOT isDraft == YES AND isDraft == NO")},
        {Book::bought > date && Book::code == code && Book::cost < Decimal(5),
         where("bought > %@ AND code == %@ AND cost < %@", date, code, Decimal(5))},
        {Book::author == jane && Book::author / Author::teacher / Author::name == "T",
         where("author == %@ AND author.teacher.name == 'T'", jane)},
        {Book::title == Book::subtitle && name < Book::title, where("title == subtitle AND author.name < title")},
        {any(Author::books) / Book::year > 1, where("ANY books.year > 1")},
        {all(Author::books / Book::title) == "x" && none(Author::books / Book::tags) / Tag::name == "y",
         where("ALL books.title == 'x' AND NONE books.tags.name == 'y'")},
        {any(Author::books / Book::title).contains("x") && "y" == any(Author::books / Book::title),
         where("ANY books.title CONTAINS 'x' AND ANY books.title == 'y'")},
        {Author::books.contains(book), where("books CONTAINS %@", book)},
        {count(Book::author / Author::books) > 3 && count(Book::tags) == 0,
         where("author.books.@count > 3 AND tags.@count == 0")},
        {sum(Author::books / Book::price) > 3 && average(Author::books / Book::year) > 1 &&
             minimum(Author::books / Book::year) > 1,
         where("books.@sum.price > 3 AND books.@avg.year > 1 AND books.@min.year > 1")},
        {maximum(Book::author / Author::books / Book::title) == "z", where("author.books.@max.title == 'z'")},
        {Novel::genre == "g" && Book::year == 1 && TypedPredicate(where("pages > 5")),
         where("genre == 'g' AND year == 1 AND pages > 5")},
    };
    for (auto const& row : rows) {
        EXPECT_TRUE(row.typed->isEqual(*row.parsed)) << *row.typed << "\n" << *row.parsed;
        EXPECT_EQ(row.typed->predicateFormat(), row.parsed->predicateFormat());
    }
}

TEST_F(TypedQueries, StepsSayOneRequestAndLeaveTheQueryBefore) {
    auto const all = context->fetch<Book>();
    auto const some = all.where(Book::year >= 1801).where(Book::year <= 1804 || Book::isDraft).where(Ref<NSPredicate>());
    auto const request = some.sortedBy(Book::year.descending(), Book::author / Author::name, Book::title.localized().descending())
                             .limit(3)
                             .offset(1)
                             .batchSize(2)
                             .prefetching(Book::author, Book::author / Author::books)
                             .request();
    EXPECT_TRUE(request->predicate()->isEqual(*where("year >= 1801 AND (year <= 1804 OR isDraft == YES)")));
    std::string keys;
    for (auto const& each : request->sortDescriptors())
        keys += each->key() + (each->ascending() ? "+" : "-") + std::to_string(static_cast<int>(each->comparison())) + " ";
    EXPECT_EQ(keys, "year-0 author.name+0 title-2 ");
    EXPECT_EQ(request->fetchLimit() * 100 + request->fetchOffset() * 10 + request->fetchBatchSize(), 312u);
    EXPECT_EQ(request->relationshipKeyPathsForPrefetching(), (std::vector<std::string>{"author", "author.books"}));
    EXPECT_FALSE(all.request()->predicate());
    EXPECT_EQ(some.request()->fetchLimit(), 0u);
}

TEST_F(TypedQueries, EveryEndGivesTheSame) {
    auto const query = context->fetch<Book>().where(Book::year > 1800).sortedBy(Book::title.localized());
    auto const expected = "Abbey,Äther,Mummy,Persuasion,Zoo";
    EXPECT_EQ(titlesOf(query), expected);
    EXPECT_EQ(titlesOf(query.objects()), expected);
    EXPECT_EQ(titlesOf(query.objects(error)), expected);
    EXPECT_EQ(titlesOf(query.batchSize(2).list()), expected);
    EXPECT_EQ(query.first()->get(Book::title), "Abbey");
    EXPECT_EQ(query.count(), 5);
    EXPECT_EQ(titlesOf(query.offset(1).limit(2)), "Äther,Mummy");
    EXPECT_EQ(titlesOf(context->fetch<Novel>().sortedBy(Book::year)), "Zoo,Abbey");
    EXPECT_EQ(titlesOf(context->fetch<Book>().where(Book::author / Author::name == "Jane").where(Book::isDraft)),
              "emma,Persuasion");
    EXPECT_EQ(context->fetch("Book").where(where("year == 1803")).first()->valueForKey("title"), Value("Mummy"));
    EXPECT_FALSE(context->fetch<Book>().where(Book::year > 1900).first());
}

TEST_F(TypedQueries, WhatAQueryCannotAnswerIsToldOnce) {
    auto const wrong = context->fetch<Book>().where(Tag::name == "x"); // nobody said whose that is
    ::testing::internal::CaptureStdout();
    EXPECT_TRUE(wrong.objects().empty());
    EXPECT_TRUE(wrong.list().empty());
    EXPECT_EQ(wrong.count(), NSNotFound);
    auto const text = ::testing::internal::GetCapturedStdout();
    EXPECT_EQ(std::ranges::count(text, '\n'), 3) << text;
    EXPECT_NE(text.find("The entity Book has no key \"name\""), text.npos) << text;
    EXPECT_TRUE(wrong.objects(error).empty());
    EXPECT_TRUE(error);
    EXPECT_EQ(context->fetch<Book>().objects(error).size(), 6u);
    EXPECT_FALSE(error);
}

TEST_F(TypedQueries, ListsAreRanges) {
    static_assert(std::ranges::random_access_range<FetchedObjects const> && std::ranges::sized_range<FetchedObjects>);
    static_assert(std::ranges::random_access_range<FetchedList<Book> const> && std::ranges::sized_range<FetchedList<Book>>);
    static_assert(std::ranges::input_range<FetchQuery<Book> const>);
    static_assert(!std::ranges::borrowed_range<FetchedList<Book>>, "an iterator needs its list");
    auto const list = context->fetch<Book>().sortedBy(Book::year).batchSize(4).list();
    auto const years = list | std::views::reverse | std::views::transform([](auto const& book) { return book->get(Book::year); });
    EXPECT_TRUE(std::ranges::equal(years, std::vector{1805, 1804, 1803, 1802, 1801, 1800}));
    auto const place = std::ranges::lower_bound(list, 1803, {}, [](auto const& book) { return book->get(Book::year); });
    EXPECT_EQ(place - list.begin(), 3);
    EXPECT_EQ(std::ranges::count_if(context->fetch<Book>(), [](auto const& book) { return book->get(Book::isDraft); }), 3);
}
