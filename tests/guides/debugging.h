#include "Tessarin/Tessarin.h"

using namespace Tessarin;
struct Book : ManagedObject<Book> {
    static inline Attribute<std::string> const title{"title"};
    static inline Attribute<std::int64_t> const year{"year"};
};
extern Ref<NSManagedObjectContext> const context;
extern Ref<NSManagedObjectModel> const model;
void show(std::string_view text);
