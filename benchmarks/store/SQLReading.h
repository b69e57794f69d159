#pragma once
// The reading rows in SQL, one text for every contender that speaks it. A Database prepares statements, which bind, step and
// give columns as RawStatement does.
#include "benchmarks/store/Contender.h"
#include "benchmarks/store/Timing.h"

namespace Tessarin::benchmarks::sql {

template <class Database> class Reader {
    using Statement = decltype(std::declval<Database&>().prepare(""));

public:
    explicit Reader(Database& database) : database_(database) {}

    /// With `changed`, the code of a book whose price is saved between the passes.
    Reading readAll(Contender::Pass timed, std::string const& changed) {
        auto books = database_.prepare("SELECT id, code, title, year, price, inPrint FROM Book");
        auto const pass = [&] {
            ReadSum sum;
            while (books.step()) {
                sum.add(books.text(1));
                sum.add(books.text(2));
                sum.add(books.integer(3));
                sum.add(books.real(4));
                sum.add(books.integer(5) != 0);
            }
            books.reset();
            return sum.value;
        };
        if (timed != Contender::Pass::First) pass();
        if (timed == Contender::Pass::AfterSave) saveOnePrice(changed);
        return timedInMs([&] { return pass(); });
    }

    Reading findByCode(Library const& library) {
        return timedInMs([&, codes = codesToFind(library)] {
            ReadSum sum;
            auto book = database_.prepare("SELECT id, title, price FROM Book WHERE code = ?");
            for (auto const& code : codes) {
                book.bind(1, code);
                book.step();
                sum.add(book.text(1));
                sum.add(book.real(2));
                book.reset();
            }
            return sum.value;
        });
    }

    Reading findAndSort() {
        return meanInMs(
            [&, books = database_.prepare("SELECT id, code, title, year, price, inPrint FROM Book WHERE price > ? AND "
                                          "instr(title, ?) > 0 ORDER BY year DESC, code LIMIT 100")]() mutable {
                ReadSum sum;
                books.bind(1, 50.0);
                books.bind(2, foo_);
                while (books.step()) sum.add(books.text(1));
                books.reset();
                return sum.value;
            });
    }

    Reading walkToAuthors() {
        return timedInMs([&] {
            ReadSum sum;
            auto books = database_.prepare("SELECT id, author FROM Book"); // its read transaction spans the look-ups, too
            auto author = database_.prepare("SELECT name FROM Author WHERE id = ?");
            while (books.step()) {
                author.bind(1, books.integer(1));
                author.step();
                sum.add(author.text(0));
                author.reset();
            }
            return sum.value;
        });
    }

    Reading countBooks() {
        return meanInMs([&, all = database_.prepare("SELECT count(*) FROM Book"),
                         dear = database_.prepare("SELECT count(*) FROM Book WHERE price > ?")]() mutable {
            dear.bind(1, 50.0);
            return numberOf(all) + numberOf(dear) * 1'000'000;
        });
    }

    /// The name of the author of the book with that code.
    std::uint64_t authorOf(std::string const& code) {
        ReadSum sum;
        auto book = database_.prepare("SELECT id, author FROM Book WHERE code = ?");
        book.bind(1, code);
        book.step();
        auto author = database_.prepare("SELECT name FROM Author WHERE id = ?");
        author.bind(1, book.integer(1));
        author.step();
        sum.add(author.text(0));
        return sum.value;
    }

    Reading residentBooks() {
        struct Book {
            std::int64_t key;
            typename Statement::KeptText code, title;
            double price;
            int year;
            bool inPrint;
        };
        auto const before = residentBytes();
        std::vector<std::unique_ptr<Book>> held; // as ours: objects that others may refer to
        auto books = database_.prepare("SELECT id, code, title, year, price, inPrint FROM Book");
        while (books.step())
            held.push_back(std::make_unique<Book>(Book{.key = books.integer(0),
                                                       .code = typename Statement::KeptText(books.text(1)),
                                                       .title = typename Statement::KeptText(books.text(2)),
                                                       .price = books.real(4),
                                                       .year = static_cast<int>(books.integer(3)),
                                                       .inPrint = books.integer(5) != 0}));
        ReadSum sum;
        for (auto const& book : held) {
            sum.add(book->code);
            sum.add(book->title);
            sum.add(std::int64_t{book->year});
            sum.add(book->price);
            sum.add(book->inPrint);
        }
        return {(residentBytes() - before) / static_cast<double>(held.size()), sum.value};
    }

protected:
    void saveOnePrice(std::string const& code) {
        auto book = database_.prepare("UPDATE Book SET price = price + 1 WHERE code = ?");
        book.bind(1, code);
        book.run();
    }

    static std::uint64_t numberOf(Statement& count) {
        count.step();
        auto const number = static_cast<std::uint64_t>(count.integer(0));
        count.reset();
        return number;
    }

    std::string const foo_ = "foo";
    Database& database_;
};

} // namespace Tessarin::benchmarks::sql
