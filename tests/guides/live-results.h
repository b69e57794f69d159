#include "Tessarin/Tessarin.h"

using namespace Tessarin;
struct Book : ManagedObject<Book> {
    static inline Attribute<std::string> const title{"title"};
    static inline Attribute<std::int64_t> const year{"year"};
};
extern Ref<NSManagedObjectContext> const context;
extern Ref<Book> const book;
void show(std::string_view text);
void insertRows(std::size_t first, std::size_t count);
void removeRows(std::size_t first, std::size_t count);
void moveRow(std::size_t from, std::size_t to);
void updateRows(std::size_t first, std::size_t count);
