#include "Tessarin/platform/runtime/Closure.h"

#include <array>
#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>
#include <new>

namespace {
thread_local std::size_t allocations = 0;
} // namespace

// Not inlined, lest the compiler see malloc meet delete.
[[gnu::noinline]] void* operator new(std::size_t size) {
    ++allocations;
    if (void* const memory = std::malloc(size)) return memory;
    throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace Tessarin {
namespace {

template <std::size_t size> struct Sized {
    explicit Sized(std::shared_ptr<int> shared) : count(std::move(shared)) {}
    int operator()(int add) { return *count += add; }
    std::shared_ptr<int> count;
    std::array<char, size - sizeof(std::shared_ptr<int>)> rest{};
};

template <std::size_t size> void checkLife(std::size_t expectedAllocations) {
    auto const count = std::make_shared<int>(1);
    Sized<size> callable(count);
    auto const before = allocations;
    Closure<int(int)> closure(std::move(callable));
    EXPECT_EQ(allocations - before, expectedAllocations);
    auto moved = std::move(closure);
    EXPECT_FALSE(closure);
    closure = std::move(moved);
    auto& same = closure;
    closure = std::move(same);
    EXPECT_EQ(closure(3), 4);
    EXPECT_EQ(count.use_count(), 2) << "moving neither copies nor leaks what is captured";
    closure = nullptr;
    EXPECT_EQ(count.use_count(), 1);
}

TEST(Closure, KeepsUpTo48BytesWithoutAllocating) {
    checkLife<48>(0);
    checkLife<49>(1);
    static_assert(!std::is_copy_constructible_v<Closure<void()>>);
}

TEST(Closure, TakesMoveOnlyThingsMembersAndNothing) {
    Closure<std::size_t(std::string const&)> const size = &std::string::size;
    EXPECT_EQ(size("four"), 4u);
    Closure<void(int)> const dropsResult = [owned = std::make_unique<int>(1)](int add) { return *owned + add; };
    dropsResult(1);
    void (*none)() = nullptr;
    EXPECT_FALSE(Closure<void()>(none));
    EXPECT_FALSE(Closure<void()>(nullptr));
    Closure<std::unique_ptr<int>(std::unique_ptr<int>)> const pass = [](std::unique_ptr<int> value) { return value; };
    EXPECT_EQ(*pass(std::make_unique<int>(7)), 7);
}

} // namespace
} // namespace Tessarin
