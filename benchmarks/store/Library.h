#pragma once
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Tessarin::benchmarks {

/// What both sides store: authors, tags and books from a fixed generator, the same in every run and on every machine.
struct Library {
    struct Author {
        std::string name;
        double birth; // seconds since 2001-01-01 UTC, a whole day
        double rating;
    };
    struct Book {
        std::string code; // 9 bytes, unique, in scattered order
        std::string title; // 27 bytes on average; 3 % contain "foo"
        int year; // 1924 … 2023, each equally often
        double price; // 0 … 99.99
        bool inPrint;
        std::uint32_t author;
        std::uint32_t tags[2]; // different
    };
    std::vector<Author> authors;
    std::vector<std::string> tags;
    std::vector<Book> books;

    static Library generate(std::size_t books);
};

/// The first `count` books as a JSON array of dictionaries, each with its author as a nested one; without tags.
std::string booksAsJSON(Library const& library, std::size_t count);

/// What W4 looks for: 10,000 codes of books all over the library.
std::vector<std::string> codesToFind(Library const& library);

/// A sum over records that does not depend on their order: equal for two stores exactly when they hold the same.
class Checksum {
public:
    void addAuthor(std::string_view name, double birth, double rating);
    void addTag(std::string_view name);
    void addBook(std::string_view code, std::string_view title, std::int64_t year, double price, bool inPrint,
                 std::string_view author);
    void addLink(std::string_view book, std::string_view tag);
    std::uint64_t value() const { return sum_; }

private:
    std::uint64_t sum_ = 0;
};

/// Of the whole library, and of books that came later.
std::uint64_t checksumOf(Library const& library, std::span<Library::Book const> more = {});
/// Of what `booksAsJSON` says.
std::uint64_t checksumOfJSON(Library const& library, std::size_t count);
/// Of a store's file, read with plain SQL: both sides name their tables and columns alike. Fails the program when damaged.
std::uint64_t checksumOfFile(std::string const& file);

/// What a row that only reads sums up: cheap, so that it does not drown what is measured, but no property can be left unread.
struct ReadSum {
    std::uint64_t value = 0;
    template <class Text>
        requires requires(Text const& text) { text.size(), text.back(); }
    void add(Text const& text) {
        value += static_cast<std::uint64_t>(text.size()) + static_cast<unsigned char>(text.back()) * 31u;
    }
    void add(std::int64_t number) { value += static_cast<std::uint64_t>(number) * 7u; }
    void add(double number) { value += static_cast<std::uint64_t>(number * 100 + 0.5) * 3u; }
    void add(bool truth) { value += truth ? 11u : 5u; }
};

} // namespace Tessarin::benchmarks
