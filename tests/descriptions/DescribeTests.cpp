#include "Tessarin/dates/DateMonth.h"
#include "Tessarin/descriptions/DefaultReflectable.h"
#include "Tessarin/platform/foundation/files/NSURL.h"
#include "Tessarin/platform/foundation/values/NSData.h"

#include <array>
#include <filesystem>
#include <gtest/gtest.h>
#include <limits>
#include <list>
#include <map>
#include <set>
#include <stdexcept>

namespace Tessarin {
namespace {

enum class Shade { Light, Dark };
enum class Unit : char { Metre = 'm', Foot = 'f' };
std::string_view caseName(Unit unit) { return unit == Unit::Metre ? "metre" : ""; }
struct Point {
    int x = 0;
    double y = 0;
};
struct Label {
    std::string text;
    std::optional<Point> at;
    Shade shade = Shade::Light;
};
class Angle {
public:
    template <class Visitor> void reflect(Visitor&& child) const {
        child("degrees", 90), child(std::nullopt, std::string("right"));
    }
};
struct Sealed {
    explicit Sealed(int value) : reference(value) {}
    int reference;
};
struct Undefined;
std::ostream& operator<<(std::ostream& out, Sealed const& sealed) { return out << "sealed\n" << sealed.reference; }

TEST(Describe, ReadsAsPeopleWriteIt) {
    auto const shared = std::make_shared<Point>(Point{1, 2});
    std::variant<int, std::string, std::monostate> const text = "v", nothing = std::monostate();
    std::pair<std::string, std::string> const rows[] = {
        {describe("a \"text\"\n"), "a \"text\"\n"},
        {describe(std::vector<std::string>{"a \"text\"\n", "\\", "\x1b\x7f"}), R"(["a \"text\"\n", "\\", "\u001B\u007F"])"},
        {describe(std::array{"ä\u2028😀", "\xC3(", "\xED\xA0\x80", "\xF4\x90", "\xE2\x82"}),
         R"(["ä\u2028😀", "\xC3(", "\xED\xA0\x80", "\xF4\x90", "\xE2\x82"])"},
        {describe(std::vector<std::u16string>{u"ä😀", {char16_t(0xD800)}}), "[\"ä😀\", \"\uFFFD\"]"},
        {describe(std::tuple(u8"ä", U'😀', L"w", 'c', static_cast<wchar_t const*>(nullptr))),
         "(\"ä\", \"😀\", \"w\", \"c\", nil)"},
        {describe(U"ä😀"), "ä😀"},
        {describe(static_cast<char const*>(nullptr)), "nil"},
        {describe(std::tuple(true, 3.0, 0.1F, std::int8_t{-7}, std::numeric_limits<std::uint64_t>::max())),
         "(true, 3.0, 0.1, -7, 18446744073709551615)"},
        {describe(std::array<std::vector<int>, 2>{{{1, 2}, {}}}), "[[1, 2], []]"},
        {describe(std::vector{true, false}), "[true, false]"},
        {describe(std::set<std::string>{"b", "a"}), "{\"a\", \"b\"}"},
        {describe(std::map<std::string, std::map<int, int>>{{"a", {{1, 2}}}, {"b", {}}}), "{\"a\": {1: 2}, \"b\": {}}"},
        {describe(std::pair(std::optional<std::string>("x"), std::optional<int>())), "(\"x\", nil)"},
        {describe(std::optional<std::string>("x")), "x"},
        {describe(std::tuple(text, nothing, nullptr, std::nullopt)), "(\"v\", nil, nil, nil)"},
        {describe(std::vector{shared, std::shared_ptr<Point>()}), "[Point(x: 1, y: 2.0), nil]"},
        {describe(WeakRef<Point>(shared)), "Point(x: 1, y: 2.0)"},
        {describe(WeakRef<Point>()), "nil"},
        {describe(std::make_unique<std::string>("owned")), "owned"},
        {describe(std::shared_ptr<Undefined>()), "nil"},
        {describe(reinterpret_cast<Point*>(0xBEEF)), "0xbeef"},
        {describe(std::vector{Shade::Dark, static_cast<Shade>(9)}), "[Dark, Shade(9)]"},
        {describe(std::pair(Unit::Metre, Unit::Foot)), "(metre, Unit(102))"},
        {describe(DateMonth::March), DateMonth::March.name()},
        {describe(Label{"a", Point{1, 2}, Shade::Dark}), "Label(text: \"a\", at: Point(x: 1, y: 2.0), shade: Dark)"},
        {describe(Angle()), "Angle(degrees: 90, \"right\")"},
        {describe(Sealed(1)), "sealed\n1"},
        {describe(std::list{Sealed(1)}), "[sealed\\n1]"},
        {describe(std::vector<Value>{"t", 1, List{"u"}, Dictionary{{"k", "v"}}, Value()}), R"(["t", 1, ["u"], {"k": "v"}, nil])"},
        {describe(std::pair(Dictionary{{"k", "v"}}, NSData::dataWithText("abc"))), "({\"k\": \"v\"}, data(3 bytes))"},
        {describe(std::vector<std::byte>(2)), "data(2 bytes)"},
        {describe(std::vector{NSURL::fileURLWithPath("/a")}), "[file:///a]"},
        {describe(std::vector<std::filesystem::path>{"/a b"}), "[\"/a b\"]"},
        {describe(std::runtime_error("broken")), "broken"},
    };
    for (auto const& [found, expected] : rows) EXPECT_EQ(found, expected);
}

struct Node {
    int id = 0;
    Ref<Node> next;
    WeakRef<Node> back;
};
/// Ends a chain link by link: the destructors of a long one would call each other.
void cut(Ref<Node> node) {
    while (node) node = std::exchange(node->next, nullptr);
}

TEST(Describe, EndsWherePointersLeadBackOrTooFar) {
    auto const first = std::make_shared<Node>(Node{1, nullptr, {}});
    first->next = std::make_shared<Node>(Node{2, nullptr, first});
    EXPECT_EQ(describe(first), "Node(id: 1, next: Node(id: 2, next: nil, back: Node(…)), back: nil)");
    EXPECT_EQ(describe(std::pair(first->next, first->next)).size(), 2 * describe(first->next).size() + 4) << "no way back: twice";

    auto chain = std::make_shared<Node>();
    for (int i = 1; i < 1'000'000; ++i) chain = std::make_shared<Node>(Node{i, chain, {}});
    auto const line = describe(chain);
    EXPECT_NE(line.find("id: 999936, next: Node(…), back: nil)"), std::string::npos) << line;
    cut(chain);
    cut(first);

    struct Fork {
        Ref<Fork> left, right;
    };
    auto fork = std::make_shared<Fork>();
    for (int i = 0; i < 60; ++i) fork = std::make_shared<Fork>(Fork{fork, fork}); // 2⁶⁰ ways down
    EXPECT_LT(describe(fork).size(), 40'000u);
}

class Person : public DefaultReflectable<Person, NSObject> {
public:
    template <class Visitor> void reflect(Visitor&& child) const { child("name", name), child("knows", knows); }
    std::string name;
    std::vector<Ref<NSObject>> knows;
};
class Host : public DefaultReflectable<Host, NSObject> {
public:
    template <class Visitor> void reflect(Visitor&& child) const { child("guests", guests); }
    Value guests;
};
class Teller : public NSObject {
public:
    std::string description() const override { return "knows " + describe(knows); }
    Ref<NSObject> knows;
};

TEST(Describe, ObjectsThatDescribeEachOtherComeToAnEnd) {
    auto const emma = make<Person>(), harriet = make<Person>();
    emma->name = "Emma", harriet->name = "Harriet";
    emma->knows = {harriet, nullptr};
    EXPECT_EQ(describe(emma), "Person(name: \"Emma\", knows: [Person(name: \"Harriet\", knows: []), nil])");
    harriet->knows = {emma};
    EXPECT_EQ(emma->description(), describe(emma));
    EXPECT_EQ(describe(emma), "Person(name: \"Emma\", knows: [Person(name: \"Harriet\", knows: [Person(…)]), nil])");
    auto const teller = make<Teller>();
    teller->knows = teller;
    EXPECT_EQ(describe(teller), "knows Teller(…)");
    harriet->knows = {teller};
    teller->knows = emma;
    EXPECT_EQ(Value(List{Value(emma)}).description().size(), 2 + describe(emma).size());
    emma->knows.clear();

    auto const here = make<Host>(), there = make<Host>();
    here->guests = List{Value(there), Value(there)};
    there->guests = List{Value(here), Value(here)};
    EXPECT_EQ(describe(here), "Host(guests: [Host(guests: [Host(…), Host(…)]), Host(guests: [Host(…), Host(…)])])");
    here->guests = Value();
}

} // namespace
} // namespace Tessarin
