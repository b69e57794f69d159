// Boost.Describe: the fields are listed once more, in a macro.
#include "benchmarks/keyaccess/Library.h"

#if __has_include(<boost/describe.hpp>)
#include <boost/describe.hpp>
#include <boost/mp11.hpp>

#include <type_traits>

namespace Tessarin::benchmarks {

BOOST_DESCRIBE_STRUCT(City, (), (name, county, people, latitude))
BOOST_DESCRIBE_STRUCT(Address, (), (street, number, city, code))
BOOST_DESCRIBE_STRUCT(Author, (), (name, born, died, height, address, read, language, books))

namespace {

template <class Result, class T> std::optional<Result> find(T const& object, std::string_view path) {
    std::optional<Result> result;
    if constexpr (boost::describe::has_describe_members<T>::value) {
        auto const end = path.find('.');
        auto const key = path.substr(0, end);
        bool done = false;
        boost::mp11::mp_for_each<boost::describe::describe_members<T, boost::describe::mod_public>>([&](auto member) {
            if (done || key != member.name) return;
            done = true;
            auto const& field = object.*member.pointer;
            if (end != std::string_view::npos)
                result = find<Result>(field, path.substr(end + 1));
            else if constexpr (std::is_same_v<std::remove_cvref_t<decltype(field)>, Result>)
                result = field;
        });
    }
    return result;
}

} // namespace

bool hasDescribe() { return true; }
std::optional<int> numberByDescribe(Author const& author, std::string_view key) { return find<int>(author, key); }
std::optional<std::string> textByDescribe(Author const& author, std::string_view key) { return find<std::string>(author, key); }
std::optional<int> numberOnPathByDescribe(Author const& author, std::string_view path) { return find<int>(author, path); }

} // namespace Tessarin::benchmarks
#else
namespace Tessarin::benchmarks {

bool hasDescribe() { return false; }
std::optional<int> numberByDescribe(Author const&, std::string_view) { return {}; }
std::optional<std::string> textByDescribe(Author const&, std::string_view) { return {}; }
std::optional<int> numberOnPathByDescribe(Author const&, std::string_view) { return {}; }

} // namespace Tessarin::benchmarks
#endif
