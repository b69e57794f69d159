#include "benchmarks/store/Library.h"
#include "benchmarks/store/RawDatabase.h"

#include <cstring>
#include <fmt/format.h>

namespace Tessarin::benchmarks {
namespace {

/// FNV-1a over the fields of one record.
class RecordHash {
public:
    explicit RecordHash(char kind) { byte(static_cast<unsigned char>(kind)); }
    RecordHash& add(std::string_view text) {
        for (char const character : text) byte(static_cast<unsigned char>(character));
        byte(0);
        return *this;
    }
    RecordHash& add(std::int64_t number) {
        for (int shift = 0; shift < 64; shift += 8) byte(static_cast<unsigned char>(number >> shift));
        return *this;
    }
    RecordHash& add(double number) {
        std::int64_t bits;
        std::memcpy(&bits, &number, sizeof bits);
        return add(bits);
    }
    std::uint64_t value() const { return hash_; }

private:
    void byte(unsigned char value) { hash_ = (hash_ ^ value) * 0x100000001B3; }
    std::uint64_t hash_ = 0xCBF29CE484222325;
};

} // namespace

void Checksum::addAuthor(std::string_view name, double birth, double rating) {
    sum_ += RecordHash('A').add(name).add(birth).add(rating).value();
}
void Checksum::addTag(std::string_view name) { sum_ += RecordHash('T').add(name).value(); }
void Checksum::addBook(std::string_view code, std::string_view title, std::int64_t year, double price, bool inPrint,
                       std::string_view author) {
    sum_ += RecordHash('B').add(code).add(title).add(year).add(price).add(std::int64_t{inPrint}).add(author).value();
}
void Checksum::addLink(std::string_view book, std::string_view tag) { sum_ += RecordHash('L').add(book).add(tag).value(); }

std::uint64_t checksumOfFile(std::string const& file) {
    RawDatabase database(file, Synchronous::Normal);
    auto integrity = database.prepare("PRAGMA integrity_check");
    integrity.step();
    if (integrity.text(0) != "ok") throw std::runtime_error(fmt::format("{} is damaged: {}", file, integrity.text(0)));

    Checksum sum;
    auto authors = database.prepare("SELECT name, birth, rating FROM Author");
    while (authors.step()) sum.addAuthor(authors.text(0), authors.real(1), authors.real(2));
    auto tags = database.prepare("SELECT name FROM Tag");
    while (tags.step()) sum.addTag(tags.text(0));
    auto books = database.prepare(
        "SELECT b.code, b.title, b.year, b.price, b.inPrint, a.name FROM Book b LEFT JOIN Author a ON a.id = b.author");
    while (books.step())
        sum.addBook(books.text(0), books.text(1), books.integer(2), books.real(3), books.integer(4) != 0, books.text(5));
    auto links =
        database.prepare("SELECT b.code, t.name FROM Book_tags l JOIN Book b ON b.id = l.owner JOIN Tag t ON t.id = l.member");
    while (links.step()) sum.addLink(links.text(0), links.text(1));
    return sum.value();
}

} // namespace Tessarin::benchmarks
