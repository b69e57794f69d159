#include "Tessarin/platform/runtime/AssociatedObjects.h"
#include "Tessarin/platform/runtime/NSObject.h"

#include <gtest/gtest.h>

namespace App {

using namespace Tessarin;

class Shape : public NSObject {
public:
    using NSObject::init;
    virtual void init(int sides) {
        NSObject::init();
        sides_ = sides;
        setup();
        self_ = self<Shape>();
    }
    virtual void setup() { steps_ += "base "; }
    virtual std::string kind() const { return "shape"; }

    void reload(Ref<Shape> other) { steps_ += other ? "reload " : "reload-nothing "; }
    void rename(std::string name, std::int64_t times) {
        for (; times > 0; --times) steps_ += name;
    }
    std::optional<std::int64_t> plus(std::optional<std::int64_t> value) {
        return value ? std::optional(*value + sides_) : std::nullopt;
    }
    void refresh() { steps_ += "refresh "; }
    static std::string greet(std::string_view name) { return "hello " + std::string{name}; }

    static SelectorTable selectors() {
        return {{"reload:"_sel, &Shape::reload}, {"rename:times:"_sel, &Shape::rename},
                {"plus:"_sel, &Shape::plus},     {"refresh"_sel, &Shape::refresh},
                {"kind"_sel, &Shape::kind},      {"greet:"_sel, &Shape::greet}};
    }

    std::string steps_;
    WeakRef<Shape> self_;
    int sides_ = 0;

protected:
    Shape() = default;
};

class Square : public Shape {
public:
    using Shape::init;
    void init() override { init(4); }
    void setup() override {
        Shape::setup();
        steps_ += "square ";
    }
    std::string kind() const override { return "square"; }
};

class Late : public Shape {
public:
    void arrive() {}
    static SelectorTable selectors() { return {{"arrive"_sel, &Late::arrive}}; }
};
class Stranger : public NSObject {};
class Unplain : public NSObject { // without a plain init it cannot be made by name
public:
    virtual void init(std::string const&) {}

private:
    using NSObject::init;
};

} // namespace App

namespace Tessarin {
namespace {

using App::Shape, App::Square;

void registerAll() {
    registerClass<Shape>();
    registerClass<Square, Shape>();
    registerClass<App::Unplain>();
}

TEST(Class, KnowsNamesSuperclassesAndHowToMakeObjectsWhoseStepsReachTheOverride) {
    registerAll();
    auto const* square = classNamed("App.Square");
    ASSERT_NE(square, nullptr);
    EXPECT_EQ(square, &make<Square>()->objectClass());
    EXPECT_TRUE(square->isSubclassOf(classOf<Shape>()));
    EXPECT_FALSE(classOf<Shape>().isSubclassOf(*square));
    auto const made = std::dynamic_pointer_cast<Square>(square->makeObject());
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(made->sides_ + make<Square>(5)->sides_, 9);
    EXPECT_EQ(made->steps_, "base square ");
    EXPECT_EQ(made->self_.lock(), made);
    EXPECT_EQ(classNamed("App.Unplain")->makeObject(), nullptr);
    EXPECT_EQ(classNamed("App.Stranger"), nullptr)
        << "never registered, though its class object exists: " << classOf<App::Stranger>().name();
    EXPECT_EQ(classNamed("XCTest"), nullptr);
}

TEST(Class, RegisteredAfterItsFirstUseKeepsTheTableThatOthersPointTo) {
    registerAll();
    auto const late = make<App::Late>();
    auto const* const entry = late->objectClass().find("arrive"_sel);
    EXPECT_FALSE(late->respondsToSelector("kind"_sel));
    registerClass<App::Late, Shape>();
    EXPECT_EQ(late->objectClass().find("arrive"_sel), entry);
    EXPECT_TRUE(entry && late->respondsToSelector("kind"_sel));
}

template <class T>
concept InitialisedAnew = requires(T& object) { object.init(); };
static_assert(!InitialisedAnew<NSObject>, "only make initialises");

TEST(Selectors, MessagesReachOverridesAndConvertTheirArguments) {
    registerAll();
    Ref<NSObject> const square = make<Square>();
    auto& shape = static_cast<Shape&>(*square);
    shape.steps_.clear();
    EXPECT_TRUE(square->respondsToSelector("reload:"_sel));
    EXPECT_FALSE(square->respondsToSelector("reload"_sel));
    EXPECT_FALSE(square->respondsToSelector("greet:"_sel)) << "the class answers it, its objects do not";

    EXPECT_EQ(square->performSelector("kind"_sel), Value("square"));
    square->performSelector("reload:"_sel, make<Square>());
    square->performSelector("reload:"_sel);
    square->performSelector("refresh"_sel, make<Square>()); // an argument that nobody takes
    square->invoke("rename:times:"_sel, {"x", 2});
    EXPECT_EQ(shape.steps_, "reload reload-nothing refresh xx");
    EXPECT_EQ(square->invoke("plus:"_sel, {3}), Value(7));
    EXPECT_EQ(square->invoke("plus:"_sel, {nullptr}), Value());
    EXPECT_EQ(classNamed("App.Square")->invoke("greet:"_sel, {"Ada"}), Value("hello Ada"));
}

TEST(SelectorsDeathTest, MisuseEndsTheProcessWithItsReason) {
    registerAll();
    auto const square = make<Square>();
    EXPECT_DEATH(square->performSelector("fly:"_sel), "^App.Square does not answer fly:\n$");
    EXPECT_DEATH(square->performSelector("reload:"_sel, make<App::Stranger>()), "^wrong argument for selector reload:\n$");
    EXPECT_DEATH(square->invoke("rename:times:"_sel, {nullptr, 1}), "wrong argument for selector rename:times:");
    EXPECT_DEATH(square->invoke("rename:times:"_sel, {"x"}), "wrong number of arguments");
    EXPECT_DEATH(square->performSelector("rename:times:"_sel, square), "wrong number of arguments");
    EXPECT_DEATH(classNamed("App.Square")->invoke("kind"_sel), "class App.Square does not answer kind");
}

class Counted : public NSObject {
public:
    ~Counted() override {
        if (last_) *last_ += 1;
        if (owner_) static_cast<void>(owner_->associatedObjectForKey(*key_)); // comes back while it is being released
    }
    int* last_ = nullptr;
    NSObject* owner_ = nullptr;
    StaticText const* key_ = nullptr;
};

TEST(AssociatedObjects, LiveUntilClearedReplacedOrTheOwnersEnd) {
    static StaticText const key("icon"), sameText("icon"), single('i');
    int released = 0;
    auto const attached = [&] {
        auto object = make<Counted>();
        object->last_ = &released;
        return object;
    };
    {
        Ref<NSObject> const owner = make<Counted>();
        auto const first = attached();
        first->owner_ = owner.get();
        first->key_ = &key;
        WeakRef<NSObject> const watched = first;
        owner->associateObject(first, key);
        EXPECT_EQ(owner->associatedObjectForKey(key), first);
        EXPECT_EQ(owner->associatedObjectForKey(sameText), nullptr) << "a key is its address";
        owner->associateObject(attached(), sameText);
        owner->associateObject(attached(), key);
        owner->associateObject(nullptr, key);
        EXPECT_EQ(owner->associatedObjectForKey(key), nullptr);
        EXPECT_EQ(released, 1);
        EXPECT_DEATH(owner->associateObject(nullptr, single), "single-character");
        EXPECT_DEATH(static_cast<void>(owner->associatedObjectForKey(single)), "single-character");
    }
    EXPECT_EQ(released, 3);
}

} // namespace
} // namespace Tessarin
