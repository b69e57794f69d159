#include "benchmarks/keyaccess/Library.h"

#include <utility>

namespace Tessarin::benchmarks {
namespace {

std::pair<std::string_view, std::string_view> split(std::string_view path) {
    auto const end = path.find('.');
    return {path.substr(0, end), end == std::string_view::npos ? std::string_view{} : path.substr(end + 1)};
}

std::optional<int> inCity(City const& city, std::string_view path) {
    return path == "people" ? std::optional(city.people) : std::nullopt;
}

std::optional<int> inAddress(Address const& address, std::string_view path) {
    auto const [key, rest] = split(path);
    if (key == "number") return rest.empty() ? std::optional(address.number) : std::nullopt;
    if (key == "city") return inCity(address.city, rest);
    return {};
}

} // namespace

std::optional<int> numberByHand(Author const& author, std::string_view key) {
    if (key == "name") return {};
    if (key == "born") return author.born;
    if (key == "died") return author.died;
    if (key == "height") return {};
    if (key == "address") return {};
    if (key == "read") return {};
    if (key == "language") return {};
    if (key == "books") return author.books;
    return {};
}

std::optional<std::string> textByHand(Author const& author, std::string_view key) {
    if (key == "name") return author.name;
    if (key == "born") return {};
    if (key == "died") return {};
    if (key == "height") return {};
    if (key == "address") return {};
    if (key == "read") return {};
    if (key == "language") return author.language;
    return {};
}

std::optional<int> numberOnPathByHand(Author const& author, std::string_view path) {
    auto const [key, rest] = split(path);
    if (rest.empty()) return numberByHand(author, key);
    if (key == "address") return inAddress(author.address, rest);
    return {};
}

} // namespace Tessarin::benchmarks
