#pragma once
// Books and authors as an application declares them.
#include "Tessarin/platform/foundation/values/NSUUID.h"
#include "Tessarin/platform/objectgraph/model/ModelBuilder.h"
#include "tests/support/Contexts.h"

namespace Tessarin::tests::typed {

class Author;
class Tag;

class Book : public ManagedObject<Book> {
public:
    static inline Attribute<std::string> const title{"title"};
    static inline Attribute<std::optional<std::string>> const subtitle{"subtitle"};
    static inline Attribute<std::int64_t> const year{"year"};
    static inline Attribute<std::int32_t> const pages{"pages"};
    static inline Attribute<double> const price{"price"};
    static inline Attribute<Decimal> const cost{"cost"};
    static inline Attribute<bool> const isDraft{"isDraft"};
    static inline Attribute<std::optional<NSDate>> const bought{"bought"};
    static inline Attribute<NSUUID> const code{"code"};
    static inline ToOne<Author> const author{"author"};
    static inline ToMany<Tag> const tags{"tags"};
};
class Novel : public ManagedObject<Novel, Book> {
public:
    static inline Attribute<std::string> const genre{"genre"};
};
/// Declared without saying whose the properties are.
class Tag : public NSManagedObject {
public:
    static inline Attribute<std::string> const name{"name"};
    static inline ToMany<Book> const books{"books"};
};
class Author : public ManagedObject<Author> {
public:
    static inline Attribute<std::string> const name{"name"};
    static inline ToOne<Author> const teacher{"teacher"};
    static inline ToMany<Book> const books{"books"};
};

inline Ref<NSManagedObjectModel> const& typedModel() {
    using Type = NSAttributeType;
    static auto const& shared = *new Ref<NSManagedObjectModel>([] {
        registerClass<Book>();
        registerClass<Novel, Book>();
        registerClass<Tag>();
        registerClass<Author>();
        return ModelBuilder()
            .entity("Book", {.className = "Tessarin.tests.typed.Book"})
            .attribute("title", Type::String)
            .attribute("subtitle", Type::String)
            .attribute("year", Type::Integer64)
            .attribute("pages", Type::Integer32)
            .attribute("price", Type::Double)
            .attribute("cost", Type::Decimal)
            .attribute("isDraft", Type::Boolean)
            .attribute("bought", Type::Date)
            .attribute("code", Type::UUID)
            .toOne("author", "Author", {.inverse = "books"})
            .toMany("tags", "Tag", {.inverse = "books"})
            .entity("Novel", {.className = "Tessarin.tests.typed.Novel", .parent = "Book"})
            .attribute("genre", Type::String)
            .entity("Tag", {.className = "Tessarin.tests.typed.Tag"})
            .attribute("name", Type::String)
            .toMany("books", "Book", {.inverse = "tags"})
            .entity("Author", {.className = "Tessarin.tests.typed.Author"})
            .attribute("name", Type::String)
            .toOne("teacher", "Author", {.inverse = "pupils"})
            .toMany("pupils", "Author", {.inverse = "teacher"})
            .toMany("books", "Book", {.inverse = "author"})
            .build();
    }());
    return shared;
}

} // namespace Tessarin::tests::typed
