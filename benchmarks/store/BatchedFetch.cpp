// W16: a list of very many records, such as a table view shows.
#include "benchmarks/store/OurModel.h"
#include "benchmarks/store/OurRows.h"
#include "benchmarks/store/Timing.h"

#include <algorithm>

namespace Tessarin::benchmarks {

Reading memoryOfBatchedFetch(std::string const& file) {
    Stack const stack(file, Synchronous::Normal);
    auto const before = residentMiB();
    auto most = before;
    auto const request = make<NSFetchRequest>("Book");
    request->setFetchBatchSize(100);
    Ref<NSError> error;
    auto const books = stack.main->fetchObjects(*request, error);
    if (error) throw ErrorException(error);
    ReadSum sum;
    for (std::size_t at = 0; at < books.size(); ++at) {
        sum.add(std::static_pointer_cast<Book>(books[at])->get(Book::title));
        if (at % 10'000 == 0) most = std::max(most, residentMiB());
    }
    return {most - before, sum.value};
}

std::uint64_t sumOfTitles(Library const& library) {
    ReadSum sum;
    for (auto const& book : library.books) sum.add(book.title);
    return sum.value;
}

} // namespace Tessarin::benchmarks
