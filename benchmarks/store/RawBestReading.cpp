#include "benchmarks/store/RawBest.h"

namespace Tessarin::benchmarks {

Reading BestReader::readAll(Contender::Pass timed, std::string const& changed) {
    auto books = database_.prepare("SELECT code, title, year, price, inPrint FROM Book");
    auto const pass = [&] {
        ReadSum sum;
        while (books.step()) {
            sum.add(books.text(0));
            sum.add(books.text(1));
            sum.add(books.integer(2));
            sum.add(books.real(3));
            sum.add(books.integer(4) != 0);
        }
        books.reset();
        return sum.value;
    };
    if (timed != Contender::Pass::First) pass();
    if (timed == Contender::Pass::AfterSave) saveOnePrice(changed);
    return timedInMs([&] { return pass(); });
}

Reading BestReader::findByCode(Library const& library) {
    return timedInMs([&, codes = codesToFind(library)] {
        ReadTransaction const around(database_);
        ReadSum sum;
        auto book = database_.prepare("SELECT title, price FROM Book WHERE code = ?");
        for (auto const& code : codes) {
            book.bind(1, code);
            book.step();
            sum.add(book.text(0));
            sum.add(book.real(1));
            book.reset();
        }
        return sum.value;
    });
}

Reading BestReader::findAndSort() {
    auto books = database_.prepare("SELECT code FROM Book WHERE price > 50.0 AND instr(title, 'foo') > 0 "
                                   "ORDER BY year DESC, code LIMIT 100");
    ReadTransaction const around(database_);
    return meanInMs([&] {
        ReadSum sum;
        while (books.step()) sum.add(books.text(0));
        books.reset();
        return sum.value;
    });
}

Reading BestReader::walkToAuthors() {
    return timedInMs([&] {
        ReadTransaction const around(database_);
        std::vector<std::string> names; // by key, which SQLite counts up from 1
        for (auto authors = database_.prepare("SELECT id, name FROM Author"); authors.step();) {
            auto const at = static_cast<std::size_t>(authors.integer(0));
            if (at >= names.size()) names.resize(2 * at);
            names[at] = authors.text(1);
        }
        ReadSum sum;
        for (auto books = database_.prepare("SELECT author FROM Book"); books.step();)
            sum.add(names[static_cast<std::size_t>(books.integer(0))]);
        return sum.value;
    });
}

Reading BestReader::countBooks() {
    auto all = database_.prepare("SELECT count(*) FROM Book"),
         dear = database_.prepare("SELECT count(*) FROM Book WHERE price > 50.0");
    ReadTransaction const around(database_);
    return meanInMs([&] { return numberOf(all) + numberOf(dear) * 1'000'000; });
}

} // namespace Tessarin::benchmarks
