// Must not compile with REFUSED, and must say why; without it must compile.
#include "Tessarin/platform/objectgraph/context/NSManagedObjectContext.h"

class Book : public Tessarin::NSManagedObject {};

void use(Tessarin::NSManagedObjectContext& context) {
    Tessarin::registerClass<Book, Tessarin::NSManagedObject>();
#if defined(REFUSED)
    static_cast<void>(context), static_cast<void>(Tessarin::make<Book>());
#else
    static_cast<void>(context.insertNewObject("Book"));
#endif
}
