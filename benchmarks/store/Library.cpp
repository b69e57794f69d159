#include "benchmarks/store/Library.h"

#include <chrono>
#include <fmt/format.h>
#include <iterator>
#include <set>
#include <string_view>

namespace Tessarin::benchmarks {
namespace {

/// splitmix64: the same numbers everywhere, which std::uniform_int_distribution does not promise.
class Random {
public:
    std::uint32_t below(std::uint32_t bound) {
        state_ += 0x9E3779B97F4A7C15;
        auto mixed = state_;
        mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9;
        mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EB;
        return static_cast<std::uint32_t>((mixed ^ (mixed >> 31)) >> 33) % bound;
    }

private:
    std::uint64_t state_ = 20240911;
};

constexpr char const* syllables[] = {"an", "be", "cor", "da", "el",  "fi", "gra", "hu",
                                     "in", "jo", "ka",  "lu", "mon", "ne", "or",  "pa"};

/// Words of 2 to 4 syllables until `length` bytes are full.
std::string words(Random& random, std::size_t length) {
    std::string text;
    while (text.size() < length) {
        if (!text.empty()) text += ' ';
        for (auto left = 2 + random.below(3); left > 0; --left) text += syllables[random.below(std::size(syllables))];
    }
    text.resize(length);
    if (text.back() == ' ') text.back() = 'e';
    return text;
}

std::string titleOf(Random& random) {
    auto title = words(random, 17 + random.below(21));
    if (random.below(100) < 3) title.replace(title.size() / 2, 3, "foo");
    return title;
}

constexpr std::chrono::sys_days referenceDay{std::chrono::year{2001} / 1 / 1};

std::string isoText(double seconds) {
    std::chrono::year_month_day const date{referenceDay + std::chrono::days{static_cast<int>(seconds / 86400)}};
    return fmt::format("{:04}-{:02}-{:02}T00:00:00.000+0000", int{date.year()}, unsigned{date.month()}, unsigned{date.day()});
}

} // namespace

Library Library::generate(std::size_t books) {
    Random random;
    Library library;
    for (int i = 0; i < 1000; ++i) {
        auto const birth = -86400.0 * (10'000 + random.below(30'000));
        library.authors.push_back(
            {fmt::format("{} {:03}", words(random, 10 + random.below(9)), i), birth, random.below(101) / 10.0});
    }
    for (int i = 0; i < 200; ++i) library.tags.push_back(fmt::format("{}-{}", words(random, 6), i));
    for (std::size_t i = 0; i < books; ++i) {
        // Multiples modulo a prime: scattered, and none comes twice.
        auto const code = fmt::format("B{:08}", (i + 1) * 48'271'003 % 99'999'989);
        auto const first = random.below(200);
        library.books.push_back({.code = code,
                                 .title = titleOf(random),
                                 .year = 1924 + static_cast<int>(i % 100),
                                 .price = random.below(10'000) / 100.0,
                                 .inPrint = random.below(2) == 1,
                                 .author = random.below(1000),
                                 .tags = {first, (first + 1 + random.below(199)) % 200}});
    }
    return library;
}

std::string booksAsJSON(Library const& library, std::size_t count) {
    std::string json = "[";
    for (std::size_t i = 0; i < count; ++i) {
        auto const& book = library.books[i];
        auto const& author = library.authors[book.author];
        fmt::format_to(
            std::back_inserter(json),
            R"({}{{"code":"{}","title":"{}","year":{},"price":{},"inPrint":{},)"
            R"("author":{{"name":"{}","birth":"{}","rating":{}}}}})",
            i ? ",\n" : "", book.code, book.title, book.year, book.price, book.inPrint, author.name, isoText(author.birth),
            author.rating);
    }
    return json + "]";
}

std::vector<std::string> codesToFind(Library const& library) {
    std::vector<std::string> codes;
    for (std::size_t i = 0; i < 10'000; ++i) codes.push_back(library.books[i * 7919 % library.books.size()].code);
    return codes;
}

std::uint64_t checksumOf(Library const& library, std::span<Library::Book const> more) {
    Checksum sum;
    for (auto const& author : library.authors) sum.addAuthor(author.name, author.birth, author.rating);
    for (auto const& tag : library.tags) sum.addTag(tag);
    for (auto const& books : {std::span(library.books), more})
        for (auto const& book : books) {
            sum.addBook(book.code, book.title, book.year, book.price, book.inPrint, library.authors[book.author].name);
            for (auto const tag : book.tags) sum.addLink(book.code, library.tags[tag]);
        }
    return sum.value();
}

std::uint64_t checksumOfJSON(Library const& library, std::size_t count) {
    Checksum sum;
    std::set<std::uint32_t> seen;
    for (std::size_t i = 0; i < count; ++i) {
        auto const& book = library.books[i];
        auto const& author = library.authors[book.author];
        sum.addBook(book.code, book.title, book.year, book.price, book.inPrint, author.name);
        if (seen.insert(book.author).second) sum.addAuthor(author.name, author.birth, author.rating);
    }
    return sum.value();
}

} // namespace Tessarin::benchmarks
