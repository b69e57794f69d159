#include "benchmarks/store/Rows.h"

#include "benchmarks/store/Children.h"

#include <algorithm>

namespace Tessarin::benchmarks {
namespace {

using Pass = Contender::Pass;
using Work = Workload const&;
using File = std::string const&;
using Result = std::optional<Reading>;

std::uint64_t afterChange(Workload const& work) {
    auto library = work.library;
    for (auto& book : library.books) {
        if (book.year >= changedBefore) continue;
        book.title = changedTitle;
        book.price = changedPrice(book.price);
        book.inPrint = !book.inPrint;
    }
    return checksumOf(library);
}

std::uint64_t afterUpdateInBatch(Workload const& work) {
    auto library = work.library;
    for (auto& book : library.books) {
        if (book.year >= batchedBefore) continue;
        book.price = batchedPrice;
        book.inPrint = false;
    }
    return checksumOf(library);
}

template <int year> std::uint64_t withoutBooksBefore(Workload const& work) {
    auto library = work.library;
    std::erase_if(library.books, [](auto const& book) { return book.year < year; });
    return checksumOf(library);
}

template <std::size_t count> std::uint64_t withMore(Workload const& work) {
    return checksumOf(work.library, std::span(work.more).first(count));
}

constexpr RowPlan plans[] = {
    {"W1", "insert 101,200, 200,000 links", "ms", 1.15, 1, 5, Start::Empty,
     [](Contender& c, Work work, File file) -> Result { return c.insertAll(work, file); },
     [](Work work) { return checksumOf(work.library); }},
    {"W2", "insert 10,000, 100 a save", "ms", 1.15, 1.05, 7, Start::Copied,
     [](Contender& c, Work work, File file) -> Result { return c.insertMore(work, file, 10'000, 100); }, withMore<10'000>},
    {"W3", "fetch all, read 5 attributes", "ms", 1.3, 0.8, 11, Start::Filled,
     [](Contender& c, Work work, File file) -> Result { return c.readAll(work, file, Pass::First); }},
    {"W3b", "the same again", "ms", 0.7, 0.5, 11, Start::Filled,
     [](Contender& c, Work work, File file) -> Result { return c.readAll(work, file, Pass::Second); }},
    {"W3c", "the same again after a small save", "ms", 0.7, 0.5, 7, Start::Copied,
     [](Contender& c, Work work, File file) -> Result { return c.readAll(work, file, Pass::AfterSave); }},
    {"W4", "10,000 look-ups by code", "ms", 1.4, 1.1, 11, Start::Filled,
     [](Contender& c, Work work, File file) -> Result { return c.findByCode(work, file); }},
    {"W5", "two conditions, two sort keys, limit", "ms", 1.05, 0, 7, Start::Filled,
     [](Contender& c, Work work, File file) -> Result { return c.findAndSort(work, file); }},
    {"W6", "fetch all, book.author.name", "ms", 3, 1.5, 11, Start::Filled,
     [](Contender& c, Work work, File file) -> Result { return c.walkToAuthors(work, file); }},
    {"W7", "fetch 10,000, change, save", "ms", 1.25, 1.1, 7, Start::Copied,
     [](Contender& c, Work work, File file) -> Result { return c.changeBooks(work, file); }, afterChange},
    {"W7b", "batch update of 11,000", "ms", 1, 0, 7, Start::Copied,
     [](Contender& c, Work work, File file) -> Result { return c.updateInBatch(work, file); }, afterUpdateInBatch},
    {"W8", "fetch 10,000, delete, save", "ms", 1.1, 1, 7, Start::Copied,
     [](Contender& c, Work work, File file) -> Result { return c.deleteBooks(work, file); }, withoutBooksBefore<changedBefore>},
    {"W8b", "batch delete of 11,000", "ms", 1, 0, 7, Start::Copied,
     [](Contender& c, Work work, File file) -> Result { return c.deleteInBatch(work, file); }, withoutBooksBefore<batchedBefore>},
    {"W9", "count all, count price > 50", "ms", 1, 0, 7, Start::Filled,
     [](Contender& c, Work work, File file) -> Result { return c.countBooks(work, file); }},
    {"W10", "import 50,000 JSON dictionaries", "ms", 1.2, 1, 5, Start::Empty,
     [](Contender& c, Work work, File file) -> Result { return c.importJSON(work, file); },
     [](Work work) { return checksumOfJSON(work.library, work.imported); }},
    {"W11", "new process, one look-up", "ms", 1.4, 1.2, 21, Start::Filled,
     [](Contender& c, Work, File file) -> Result { return measureInChild(ChildTask::OpenAndFind, c, file); }},
    {"W12", "memory of a live book", "B", 200, 180, 3, Start::Filled,
     [](Contender& c, Work, File file) -> Result { return measureInChild(ChildTask::Resident, c, file); }, nullptr, Bound::Ours},
    {"W13", "1,000 saves of one", "ms", 1.15, 1.05, 7, Start::Copied,
     [](Contender& c, Work work, File file) -> Result { return c.insertMore(work, file, 1'000, 1); }, withMore<1'000>},
    {"W17", "W1 with a history", "ms", 1.05, 1, 7, Start::Empty,
     [](Contender& c, Work work, File file) { return c.insertAllKept(work, file); },
     [](Work work) { return checksumOf(work.library); }},
    {"W18", "W13 with a history and a notice", "ms", 1.05, 0, 7, Start::Copied,
     [](Contender& c, Work work, File file) { return c.insertMoreKept(work, file, 1'000, 1); }, withMore<1'000>},
};

} // namespace

std::span<RowPlan const> rowPlans() { return plans; }

RowPlan const& rowPlan(std::string_view id) { return *std::ranges::find(plans, id, &RowPlan::id); }

} // namespace Tessarin::benchmarks
