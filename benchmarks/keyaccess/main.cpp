// Fields by name, beside the ifs that one writes by hand (the limit) and Boost.Describe.
#include "Tessarin/keyaccess/KVC.h"
#include "benchmarks/keyaccess/Library.h"
#include "benchmarks/support/Threads.h"

namespace Tessarin::benchmarks {
namespace {

constexpr int runs = 9;
constexpr int count = 1'000'000;

/// Each as it would stand in a program: a function that is called with a key that the compiler does not know.
[[gnu::noinline]] std::optional<int> number(Author const& author, std::string_view key) { return valueForKey<int>(author, key); }
[[gnu::noinline]] std::optional<std::string> text(Author const& author, std::string_view key) {
    return valueForKey<std::string>(author, key);
}
[[gnu::noinline]] std::optional<int> numberOnPath(Author const& author, std::string_view path) {
    return valueForKeyPath<int>(author, path);
}

template <class Result>
void compare(Report& report, char const* row, std::vector<std::string_view> const& keys, double target,
             std::optional<Result> (*ours)(Author const&, std::string_view),
             std::optional<Result> (*byHand)(Author const&, std::string_view),
             std::optional<Result> (*byDescribe)(Author const&, std::string_view)) {
    if (!report.wants("keyaccess", row)) return;
    Author author;
    auto const measured = [&](auto* function) {
        std::size_t at = 0;
        return nanoseconds(count, [&] {
            touch(author);
            auto result = function(author, keys[at]);
            touch(result);
            if (++at == keys.size()) at = 0;
        });
    };
    auto const result = medians(
        runs, [&] { return measured(ours); }, [&] { return measured(byHand); });
    auto const describe = hasDescribe() ? std::optional(median(runs, [&] { return measured(byDescribe); })) : std::nullopt;
    report.add({.group = "keyaccess",
                .row = row,
                .unit = "ns",
                .ours = result.ours,
                .peer = "ifs by hand",
                .theirs = result.theirs,
                .target = target,
                .others = {describe}});
}

} // namespace
} // namespace Tessarin::benchmarks

int main(int argc, char** argv) {
    using namespace Tessarin::benchmarks;
    Report report(argc, argv, {"Boost.Describe"});
    compare<int>(report, "a number by key", {"born", "died", "books"}, 1.2, number, numberByHand, numberByDescribe);
    compare<int>(report, "the last of eight fields", {"books"}, 1.2, number, numberByHand, numberByDescribe);
    compare<int>(report, "a key of none", {"people"}, 1.2, number, numberByHand, numberByDescribe);
    compare<std::string>(report, "a text by key", {"name", "language"}, 1.2, text, textByHand, textByDescribe);
    compare<int>(report, "a path of three", {"address.city.people"}, 2.4, numberOnPath, numberOnPathByHand,
                 numberOnPathByDescribe);
    return report.finish();
}
