#include "Tessarin/descriptions/DefaultReflectable.h"
#include "Tessarin/platform/foundation/values/NSData.h"

#include <gtest/gtest.h>
#include <algorithm>
#include <cstdlib>
#include <map>
#include <set>

namespace Tessarin {
namespace {

struct Node {
    int id = 0;
    Ref<Node> next;
    WeakRef<Node> back;
    std::unique_ptr<Node> own;
};
class Shape : public DefaultReflectable<Shape, NSObject> {
public:
    template <class Visitor> void reflect(Visitor&& child) const {
        child("name", name);
        child("made", std::make_unique<std::pair<int, std::vector<std::string>>>(1, std::vector<std::string>{"gone soon"}));
        child("inside", inside);
    }
    std::string name;
    Ref<Shape> inside;
};
class Loud : public Shape {
public:
    std::string description() const override { return "Loud " + Shape::description(); }
};
class Mute : public Shape {
public:
    std::string description() const override { return "Mute"; }
};
struct Album {
    std::string title = "a\nb";
    std::map<std::string, std::vector<int>> marks{{"x", {}}, {"y", {1, 2, 3}}};
    std::optional<std::variant<int, std::pair<bool, char>>> choice{std::pair(true, 'c')};
    std::set<int> none;
    NSData picture{std::vector<std::byte>(300, std::byte{0xAB})};
    Value notes = Dictionary{{"list", List{1, Value::data(std::vector<std::byte>(1))}}, {"text", "t"}};
};

TEST(DescribeDeeply, WritesALineForEachFieldAndElement) {
    EXPECT_EQ(describeDeeply(Album(), {.width = 2}), R"(Album
  title: "a\nb"
  marks: 2 entries
    "x": []
    "y": 3 elements
      0: 1
      1: 2
      … 1 more
  choice: 2 values
    0: true
    1: "c"
  none: {}
  picture: 300 bytes: AB AB AB AB AB AB AB AB AB AB AB AB AB AB AB AB …
  notes: 2 entries
    "list": 2 elements
      0: 1
      1: 1 byte: 00
    "text": "t")");
    EXPECT_EQ(describeDeeply(std::vector<Album>(1), {.depth = 1, .indent = 1}), "1 element\n 0: Album (…)");
    EXPECT_EQ(describeDeeply(std::vector<Album>(2), {.depth = 0}), "2 elements (…)");
    EXPECT_EQ(describeDeeply(std::string("a\nb")), "\"a\\nb\"");
}

TEST(DescribeDeeply, WritesOnceWhatSeveralPointersLeadTo) {
    auto const shared = std::make_shared<Node>(Node{7, nullptr, {}, nullptr});
    auto const root = std::make_shared<Node>(Node{1, shared, shared, std::make_unique<Node>(Node{2, shared, {}, nullptr})});
    shared->back = root;
    EXPECT_EQ(describeDeeply(root), R"(Node #1
  id: 1
  next: Node #2
    id: 7
    next: nil
    back: Node #1 (leads back)
    own: nil
  back: Node #2 (above)
  own: Node
    id: 2
    next: Node #2 (above)
    back: nil
    own: nil)");
    EXPECT_EQ(describeDeeply(*root), describeDeeply(root)) << "pointers lead back to the value itself, too";
    EXPECT_EQ(describeDeeply(root, {.depth = 1}), "Node\n  id: 1\n  next: Node (…)\n  back: Node (…)\n  own: Node (…)");
}

TEST(DescribeDeeply, AsksObjectsForTheirFieldsWhateverLeadsToThem) {
    auto const outer = make<Shape>(), inner = make<Shape>();
    outer->name = "outer", outer->inside = inner;
    inner->name = "inner", inner->inside = outer;
    auto const text = outer->deepDescription();
    EXPECT_EQ(text, R"(Shape #1
  name: "outer"
  made: 2 values
    0: 1
    1: 1 element
      0: "gone soon"
  inside: Shape
    name: "inner"
    made: 2 values
      0: 1
      1: 1 element
        0: "gone soon"
    inside: Shape #1 (leads back))");
    EXPECT_EQ(describeDeeply(Ref<NSObject>(outer)), text);
    EXPECT_EQ(describeDeeply(Value(outer)), text);
    auto const loud = make<Loud>();
    loud->inside = make<Mute>();
    EXPECT_EQ(describeDeeply(loud), describe(loud)) << "an override has the last word";
    EXPECT_TRUE(describe(loud).starts_with("Loud Shape(name: \"\"")) << describe(loud);
    outer->inside = loud->inside;
    EXPECT_TRUE(describeDeeply(outer).ends_with("\n  inside: Mute")) << describeDeeply(outer);
    outer->inside = nullptr;
}

std::size_t linesOf(std::string const& text) { return 1 + static_cast<std::size_t>(std::ranges::count(text, '\n')); }

struct Link {
    int id = 0;
    Ref<Link> next;
    std::unique_ptr<Link> own;
};

TEST(DescribeDeeply, WalksLongRingsAndChainsWithoutTheStack) {
    std::size_t const count = std::getenv("TESSARIN_LONG") ? 1'000'000 : 200'000; // a function for each is too much stack
    DeepDescriptionOptions const all{.depth = count, .width = count, .indent = 0};
    std::vector<Ref<Link>> links;
    for (std::size_t i = 0; i < count; ++i) links.push_back(std::make_shared<Link>(Link{static_cast<int>(i), nullptr, nullptr}));
    for (std::size_t i = 0; i < count; ++i) links[i]->next = links[(i + 1) % count];
    auto const ring = describeDeeply(links[0], all);
    EXPECT_EQ(linesOf(ring), 1 + 3 * count);
    EXPECT_NE(ring.find("\nid: " + std::to_string(count - 1) + "\nnext: Link #1 (leads back)\n"), std::string::npos);
    for (auto const& link : links) link->next = nullptr;

    auto owner = std::make_unique<Link>();
    for (std::size_t i = 1; i < count; ++i) {
        auto outer = std::make_unique<Link>();
        outer->own = std::move(owner);
        owner = std::move(outer);
    }
    EXPECT_EQ(linesOf(describeDeeply(*owner, all)), 1 + 3 * count);
    EXPECT_EQ(linesOf(describeDeeply(*owner)), 1 + 3 * 32u) << "as deep as is asked for";
    while (owner) owner = std::move(owner->own);
}

} // namespace
} // namespace Tessarin
