#include "Tessarin/platform/foundation/predicates/NSComparisonPredicate.h"
#include "Tessarin/platform/foundation/predicates/NSCompoundPredicate.h"
#include "Tessarin/platform/foundation/values/NSError.h"

#include <gtest/gtest.h>
#include <limits>
#include <set>
#include <thread>

using namespace Tessarin;

namespace {

/// A record as one of several contexts would show it: two records of one number stand for the same.
class Record : public NSObject {
public:
    NSObject const& predicateIdentity() const override { return *identity_; }
    Value valueForKey(std::string_view key) override { return key == "number" ? Value(number_) : NSObject::valueForKey(key); }
    std::int64_t number() const { return number_; }
    void setNumber(std::int64_t number) { number_ = number; }
    static SelectorTable selectors() { return {{"twice"_sel, &Record::twice}, {"setNumber:"_sel, &Record::setNumber}}; }

    using NSObject::init;
    virtual void init(std::int64_t number, Ref<NSObject> identity) {
        number_ = number;
        identity_ = std::move(identity);
    }

private:
    std::int64_t twice() const { return 2 * number_; }
    std::int64_t number_ = 0;
    Ref<NSObject> identity_;
};

[[maybe_unused]] Class const& recordClass = registerClass<Record>();

Ref<NSObject> anIdentity() {
    class Identity : public NSObject {};
    return make<Identity>();
}

Value book() {
    Dictionary const author{{"name", "Jane Austen"}, {"born", 1775}, {"agent", nullptr}, {"in", "Steventon"}};
    List const editions{Dictionary{{"year", 1815}, {"copies", 2000}}, Dictionary{{"year", 1833}, {"copies", 500}}};
    // clang-format off
    return Dictionary{
        {"title", "Emma"}, {"year", 1815}, {"price", Decimal::fromText("12.50").value()}, {"rating", 4.5}, {"isOpen", true},
        {"subtitle", nullptr}, {"added", Value::date(100)}, {"author", author}, {"editions", editions}, {"prequels", List{}},
        {"tags", ValueSet{"Novel", "CLASSIC", "Straße", "Ηπειρος"}}, {"note", "Crème Brûlée\n100%"}};
    // clang-format on
}

struct Row {
    char const* format;
    List arguments;
    bool expected;
};

void expectRows(std::vector<Row> const& rows, Value const& object = book()) {
    for (auto const& [format, arguments, expected] : rows) {
        auto const predicate = NSPredicate::predicateWithFormatArguments(format, arguments);
        EXPECT_EQ(predicate->evaluateWithObject(object), expected) << format;
        auto const again = NSPredicate::parse(predicate->predicateFormat());
        // Dates, decimals and objects have no literal form; everything else reads back.
        if (again) {
            EXPECT_EQ(again->evaluateWithObject(object), expected) << format << " written as " << *predicate;
        }
    }
}

/// Conditions without arguments, on the book.
void expectTrue(std::vector<char const*> const& formats) {
    for (auto const* format : formats) expectRows({{format, {}, true}});
}
void expectFalse(std::vector<char const*> const& formats) {
    for (auto const* format : formats) expectRows({{format, {}, false}});
}

} // namespace

TEST(NSPredicate, AbsentValuesAreUnequalToAllAndInNoOrder) {
    expectTrue({"subtitle != 'a'", "subtitle = nil", "nil == subtitle", "NOT subtitle < 5", "NOT (subtitle IN {'a'})",
                "author.agent.name == nil"});
    expectFalse({"subtitle == 'a'", "subtitle != NULL", "subtitle < 5", "subtitle >= 5", "subtitle <= nil", "5 > subtitle",
                 "subtitle BETWEEN {1, 2}", "subtitle IN {'a', nil}", "subtitle CONTAINS 'a'", "title CONTAINS subtitle",
                 "subtitle LIKE '*'", "subtitle MATCHES '.*'", "author.agent.books.@count == 0"});
    expectRows({{"title != %@", {nullptr}, true}, {"subtitle IN %@", {nullptr}, false}});
}

TEST(NSPredicate, ComparesNumbersOfAllKindsBySize) {
    expectTrue({"year == 1815", "year=1815.0", "1800<year&&year=<1900", "year => 0x717", "rating > -1.5e0", "price == 12.5",
                "price IN {12.5, 13}", "isOpen == 1", "isOpen = YES", "isOpen != false", "year BETWEEN {1815, 1815}"});
    expectFalse({"year<>1815", "isOpen == 2", "year == '1815'", "title < 5"});
    expectRows({{"price > %f AND price < %lu", {12.25, 13}, true},
                {"isOpen == %d", {true}, true},
                {"year BETWEEN %@", {Value(List{1816, 1900})}, false},
                {"year BETWEEN { %d, author.born }", {1700}, false},
                {"added < %@", {Value::date(100.5)}, true},
                {"%@ <= added", {Value::date(101)}, false}});
}

TEST(NSPredicate, ComparesTexts) {
    expectTrue({"title == 'Emma'", "title ==[c] \"eMMA\"", "title <= 'Emma' and title > 'Alpha'", "title <[c] 'f'", "title < 'F'",
                "title beginswith 'Em' AND title EndsWith[c] 'MA'", "title CONTAINS 'mm'", "'Em' IN title",
                "note CONTAINS[cd] 'creme brulee'", "note CONTAINS[c] 'CRÈME'", "title LIKE 'E*a'", "title like[c] 'e??a'",
                "note LIKE '*100\\\\%'", "note LIKE[cd] 'cr?me*'", "title MATCHES 'Em+a'", "ANY tags ==[c] 'STRASSE'",
                "ANY tags CONTAINS[cd] 'ήπειρ'", "SELF.note ENDSWITH '\\n100%'"});
    expectFalse({"title == \"emma\"", "note CONTAINS[d] 'creme'", "title == '%@'", "title LIKE 'E?a'", "title MATCHES 'mm'"});
    expectRows({
        {"note BEGINSWITH[n] 'Cre\xCC\x80me'", {}, true}, // written apart
        {"title MATCHES[c] %@", {"e.*"}, true},
    });
}

TEST(NSPredicate, JoinsConditions) {
    expectTrue({"TRUEPREDICATE", "falsepredicate OR NOT falsepredicate", "year == 1 OR year == 1815 AND title == 'Emma'",
                "!(year == 1815) || title == 'Emma'", "NOT NOT year == 1815", "((year)) == (1815)",
                "((title) IN {'a', 'Emma'}) AND ((year > 1))", "SELF.author.born == 1775"});
    expectFalse({"(year == 1815 OR year == 1) AND title == 'x'", "NOT year == 1 AND title == 'x'"});
    expectRows({{"%K == %@ AND %@ IN %K.#in", {"author.name", "Jane Austen", "Stev", "author"}, true},
                {"author.%K == 1775", {"born"}, true}});
}

TEST(NSPredicate, LooksAtMembersOfLists) {
    List manyNames, manyNumbers;
    for (int at = 0; at < 5000; ++at) {
        manyNames.push_back("name" + std::to_string(at));
        manyNumbers.push_back(at);
    }
    expectTrue({"ANY editions.year > 1830", "ALL editions.year > 1800", "ALL prequels.year > 0", "NONE prequels.year > 0",
                "ANY editions.year IN {1, 1833}", "editions.@count == 2 AND prequels.@count = 0",
                "editions.@sum.copies == 2500 AND editions.@max.year == 1833 AND editions.@avg.copies == 1250",
                "prequels.@min.year == nil AND editions.@max == nil", "tags CONTAINS 'Novel'", "'novel' IN[c] tags",
                "year IN {title, author.born, 1815}"});
    expectFalse({"SOME editions.year > 1833", "NONE editions.year == 1815", "ANY prequels.year > 0",
                 "ANY author.agent.name != 'x'", "title IN {}"});
    expectRows({{"title IN %@", {Value(List{})}, false},
                {"title IN %@", {Value(manyNames)}, false},
                {"year IN %@", {Value(manyNumbers)}, true},
                {"title IN[c] %@", {ValueSet{"EMMA", 5}}, true}});
    expectRows({{"SELF IN {1, 2}", {}, true}, {"SELF > 1", {}, true}, {"self == 3", {}, false}}, 2);
    expectRows({{"ANY SELF == 3", {}, true}, {"SELF.@count == 3", {}, true}, {"@count == 3", {}, true}}, List{1, 2, 3});
}

TEST(NSPredicate, ComparesObjectsByWhatTheyStandFor) {
    auto const identity = anIdentity();
    auto const one = make<Record>(7, identity), same = make<Record>(7, identity), other = make<Record>(8, anIdentity());
    // clang-format off
    expectRows({
        {"SELF == %@", {same}, true}, {"SELF == %@", {identity}, true}, {"SELF == %@", {other}, false},
        {"SELF IN %@", {Value(List{other, same})}, true}, {"SELF IN %@", {Value(List{other})}, false},
        {"%@ CONTAINS SELF", {ValueSet{identity}}, true}, {"self.number == 7 AND twice == 14", {}, true}},
    // clang-format on
               one);
    auto const remote = NSPredicate::predicateWithFormat("friend == %@ AND friend.number IN %@", same, std::vector<int>{1, 7});
    EXPECT_TRUE(remote->evaluateWithObject(Dictionary{{"friend", one}}));
}

TEST(NSPredicate, RefusesMalformedFormatsAndSaysWhere) {
    struct {
        char const *format, *problem;
        List arguments = {};
    // clang-format off
    } const rows[] = {
        {"", "at character 1: the format ends"}, {"title ==", "at character 9: the format ends"},
        {"title", "at character 6: a comparison"}, {"title == 'a", "at character 10: this text has no closing quote"},
        {"(title == 'a'", "at character 14: a closing parenthesis"},
        {"title == 'a')", "at character 13: a condition ends here"}, {"a == 1 b == 2", "at character 8: a condition ends here"},
        {"a == %@", "at character 6: the argument for this is missing"}, {"a == %@", "more arguments", {1, 2}},
        {"a == %d", "this takes a number", {"x"}}, {"%K == 1", "%K takes a key path", {1}},
        {"a == %y", "after % a format has", {1}}, {"a ==[x] 'b'", "c, d and n"}, {"a BETWEEN {1}", "two bounds"},
        {"a BETWEEN %@", "two bounds", {5}}, {"a MATCHES '('", "malformed"}, {"and == 1", "written #and"},
        {"a & 1 == 1", "bit operators are not supported"},
        {"SUBQUERY(a, $x, $x > 1).@count > 0", "SUBQUERY(…) is not supported"},
        {"a > CAST(b, 'NSDate')", "CAST(…) is not supported"}, {"a.@median.b > 1", "@median is not supported"},
        {"a[0] == 1", "position"}, {"a == {1, 2", "a comma or a closing brace"}, {"a.. == 1", "a key is expected"},
        {"a == 12abc", "not a number"}, {"a == 1 \x01", "no meaning"}};
    // clang-format on
    for (auto const& [format, problem, arguments] : rows) {
        Ref<NSError> error;
        EXPECT_EQ(NSPredicate::parse(format, arguments, &error), nullptr) << format;
        ASSERT_TRUE(error) << format;
        EXPECT_NE(error->localizedDescription().find(problem), std::string::npos)
            << format << ": " << error->localizedDescription();
    }
    EXPECT_EQ(NSPredicate::parse(std::string(100000, '(') + "a"), nullptr); // and no overflow of the stack
    EXPECT_EQ(NSPredicate::parse("a == " + std::string(100000, '{')), nullptr);
    EXPECT_DEATH(NSPredicate::predicateWithFormat("a =="), "the predicate format \"a ==\" cannot be read at character 5");
}

TEST(NSPredicate, PutsValuesInPlaceOfVariables) {
    auto const pattern = NSPredicate::predicateWithFormat("title == $TITLE AND NOT year IN $YEARS");
    auto const ready = pattern->predicateWithSubstitutionVariables({{"TITLE", "Emma"}, {"YEARS", List{1, 2}}});
    EXPECT_TRUE(ready->evaluateWithObject(book()));
    EXPECT_EQ(ready->predicateFormat(), R"(title == "Emma" AND (NOT year IN {1, 2}))");
    EXPECT_TRUE(pattern->predicateWithSubstitutionVariables({{"TITLE", "x"}})->predicateFormat().ends_with("$YEARS)"));
    EXPECT_DEATH(pattern->evaluateWithObject(book()), "no value was given for the variable \\$TITLE");
}

TEST(NSPredicate, TellsItsPartsAndWhatItReads) {
    auto const predicate =
        NSPredicate::predicateWithFormat("NOT (a.b == 1 OR c IN {d, 2}) AND SELF != $x.y AND ANY e.@count BEGINSWITH[cd] 'z'");
    EXPECT_EQ(predicate->keyPaths(), (std::set<std::string>{"a.b", "c", "d", "e.@count"}));
    auto const* all = predicate->asCompound();
    ASSERT_TRUE(all && all->subpredicates().size() == 3);
    auto const* last = all->subpredicates()[2]->asComparison();
    ASSERT_TRUE(last);
    EXPECT_EQ(last->predicateOperatorType(), NSPredicateOperatorType::BeginsWith);
    EXPECT_EQ(last->comparisonPredicateModifier(), NSComparisonPredicateModifier::Any);
    EXPECT_EQ(last->options(), TextOptions::CaseInsensitive | TextOptions::DiacriticInsensitive);
    EXPECT_EQ(last->rightExpression()->constantValue(), Value("z"));
    EXPECT_TRUE(equal(NSPredicate::parse(predicate->predicateFormat()), predicate));
    EXPECT_FALSE(equal(NSPredicate::parse("a == 1"), NSPredicate::parse("a == 2")));
    EXPECT_FALSE(make<NSPredicate>(false)->evaluateWithObject({}));
    EXPECT_TRUE(NSCompoundPredicate::andPredicateWithSubpredicates({})->evaluateWithObject({}));
    EXPECT_FALSE(NSCompoundPredicate::orPredicateWithSubpredicates({})->evaluateWithObject({}));
}

TEST(NSPredicate, ServesManyThreadsAtOnce) {
    auto const predicate =
        NSPredicate::predicateWithFormat("title MATCHES '[A-Z]m+a' AND note CONTAINS[cd] 'brulee' AND year IN {1, 1815}");
    std::vector<std::thread> threads;
    std::atomic<int> wrong = 0;
    for (int at = 0; at < 4; ++at)
        threads.emplace_back([&, object = book()] {
            for (int round = 0; round < 500; ++round) wrong += !predicate->evaluateWithObject(object);
        });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(wrong, 0);
}

TEST(NSPredicate, NestedToAnyDepthItIsWalkedWithoutTheStack) {
    auto const nested = [](int depth, Ref<NSPredicate> inner) {
        for (int level = 0; level < depth; ++level)
            inner = level % 2 ? Ref<NSPredicate>(NSCompoundPredicate::notPredicateWithSubpredicate(std::move(inner)))
                              : NSCompoundPredicate::orPredicateWithSubpredicates(
                                    {NSPredicate::predicateWithValue(false), std::move(inner)});
        return inner;
    };
    for (int const depth : {499, 501, 200'001, 200'002, 200'003}) {
        auto const deep = nested(depth, NSPredicate::predicateWithFormat("year == $YEAR"));
        auto const bound = deep->predicateWithSubstitutionVariables({{"YEAR", 1815}});
        EXPECT_EQ(bound->evaluateWithObject(book()), depth / 2 % 2 == 0) << depth;
        EXPECT_EQ(deep->keyPaths().size(), 1u);
        EXPECT_TRUE(bound->isEqual(*nested(depth, NSPredicate::predicateWithFormat("year == 1815"))));
        EXPECT_FALSE(bound->isEqual(*deep));
        EXPECT_FALSE(bound->predicateFormat().empty());
    }
}

TEST(NSPredicate, ValuesAndPathsOfAnyDepthAreWalkedOrRefused) {
    Value nested = 1;
    std::string path = "titles";
    for (int level = 0; level < 100'000; ++level) {
        nested = List{nested};
        path += ".@max";
    }
    for (auto const* format : {"titles == %@", "titles IN %@", "ANY titles == %@"}) {
        auto const predicate = NSPredicate::predicateWithFormat(format, nested);
        EXPECT_FALSE(predicate->predicateFormat().empty());
        EXPECT_EQ(predicate->evaluateWithObject(Dictionary{{"titles", nested}}), std::string_view(format) == "titles == %@");
    }
    EXPECT_FALSE(NSPredicate::parse("%K == 1", {Value(path)}));
    EXPECT_FALSE(NSPredicate::parse(path + " == 1"));
}

TEST(NSPredicate, FormatsThatEndTooSoonAreRefused) {
    for (auto const* format : {"t ==[", "t ==[c", "t ==['c'] 1", "t ==[1] 1", "t", "t ==", "t IN {", "t IN {1", "(", "NOT", "ANY",
                               "t == -", "%", "t ==[]", "- inf"})
        EXPECT_FALSE(NSPredicate::parse(format)) << format;
    auto const infinite = NSPredicate::predicateWithFormat("rating < %@ AND -inf < rating AND #inf.INF == nil",
                                                           std::numeric_limits<double>::infinity());
    EXPECT_TRUE(NSPredicate::predicateWithFormat(infinite->predicateFormat())->isEqual(*infinite)) << infinite->predicateFormat();
}

TEST(KeyValueCoding, AnswersThroughSelectorsAndIsFatalForUnknownKeys) {
    auto const record = make<Record>(3, anIdentity());
    EXPECT_EQ(record->valueForKey("twice"), Value(6));
    record->setValueForKey(5, "number");
    EXPECT_EQ(valueForKeyPath(Dictionary{{"record", record}}, "record.twice"), Value(10));
    EXPECT_DEATH(record->valueForKey("thrice"), "Record.* is not key value coding-compliant for the key \"thrice\"");
    EXPECT_DEATH(record->setValueForKey(1, "twice"), "is not key value coding-compliant for the key \"twice\"");
    EXPECT_DEATH(valueForKeyPath("text", "length"), "the text .*is not key value coding-compliant for the key \"length\"");
}
