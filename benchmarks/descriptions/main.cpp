// A structure in one line, beside the line of {fmt} that one writes by hand (the limit).
#include "Tessarin/descriptions/DescribeDeeply.h"
#include "benchmarks/support/Threads.h"

#include <ctime>
#include <fmt/format.h>

namespace Tessarin::benchmarks {
namespace {

constexpr int runs = 9;
constexpr int count = 200'000;

struct Book {
    std::string title = "The Mill on the Floss";
    int year = 1860;
    double price = 12.5;
    bool isRead = true;
    std::optional<std::string> owner = "Maggie Tulliver";
};

std::string byHand(Book const& book) {
    return fmt::format("Book(title: \"{}\", year: {}, price: {}, isRead: {}, owner: \"{}\")", book.title, book.year, book.price,
                       book.isRead, *book.owner);
}

double processorSeconds() {
    timespec now{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

/// Nanoseconds of processor time for each of `times` calls.
template <class Work> double processorNanoseconds(int times, Work const& work) {
    auto const start = processorSeconds();
    for (int i = 0; i < times; ++i) work();
    return (processorSeconds() - start) / times * 1e9;
}

void addStructure(Report& report) {
    Book book;
    if (describe(book) != byHand(book)) fatal("both must write the same: " + describe(book));
    auto const [ours, theirs] = medians(
        runs,
        [&] {
            return processorNanoseconds(count, [&] {
                touch(book);
                auto text = describe(book);
                touch(text);
            });
        },
        [&] {
            return processorNanoseconds(count, [&] {
                touch(book);
                auto text = byHand(book);
                touch(text);
            });
        });
    report.add({.group = "describe",
                .row = "five fields",
                .unit = "ns",
                .ours = ours,
                .peer = "fmt by hand",
                .theirs = theirs,
                .target = 3});
}

struct Node {
    int id = 0;
    Ref<Node> next;
};

/// A ring, so that what is told again is found again.
double ring(int size) {
    auto const first = std::make_shared<Node>();
    auto last = first;
    for (int i = 1; i < size; ++i) last = last->next = std::make_shared<Node>(Node{i, nullptr});
    last->next = first;
    auto const time = processorNanoseconds(1, [&] {
        auto text = describeDeeply(first, {.depth = static_cast<std::size_t>(-1), .indent = 0});
        touch(text);
    });
    for (auto node = std::exchange(first->next, nullptr); node;) node = std::exchange(node->next, nullptr);
    return time / size;
}

void addRing(Report& report) {
    auto const [ours, theirs] = medians(
        3, [] { return ring(1'000'000); }, [] { return ring(250'000); });
    report.add({.group = "describeDeeply",
                .row = "ring of 1,000,000",
                .unit = "ns a node",
                .ours = ours,
                .peer = "ring of 250,000",
                .theirs = theirs,
                .target = 2});
}

} // namespace
} // namespace Tessarin::benchmarks

int main(int argc, char** argv) {
    using namespace Tessarin::benchmarks;
    Report report(argc, argv);
    if (report.wants("describe", "five fields")) addStructure(report);
    if (report.wants("describeDeeply", "ring of 1,000,000")) addRing(report);
    return report.finish();
}
