#pragma once
#include <optional>
#include <string>
#include <string_view>

// What is asked for by key: eight fields, and three levels of them.
namespace Tessarin::benchmarks {

struct City {
    std::string name = "Winchester";
    std::string county = "Hampshire";
    int people = 48478;
    double latitude = 51.06;
};
struct Address {
    std::string street = "College Street";
    int number = 8;
    City city;
    std::string code;
};
struct Author {
    std::string name = "Jane Austen";
    int born = 1775;
    int died = 1817;
    double height = 1.7;
    Address address;
    bool read = true;
    std::string language = "en";
    int books = 6;
};

/// What a program without key access writes: each name in an if, for one type of result.
std::optional<int> numberByHand(Author const& author, std::string_view key);
std::optional<std::string> textByHand(Author const& author, std::string_view key);
std::optional<int> numberOnPathByHand(Author const& author, std::string_view path);

/// The same through Boost.Describe; absent where it is not installed.
bool hasDescribe();
std::optional<int> numberByDescribe(Author const& author, std::string_view key);
std::optional<std::string> textByDescribe(Author const& author, std::string_view key);
std::optional<int> numberOnPathByDescribe(Author const& author, std::string_view path);

} // namespace Tessarin::benchmarks
