#include "Tessarin/Tessarin.h"

using namespace Tessarin;
class Author;
class Book;
extern Ref<NSManagedObjectModel> const model;
extern Ref<ManagedObjectStore> const store;
extern Ref<NSManagedObjectContext> const context;
extern Ref<Author> const jane;
extern Ref<Book> const book;
extern std::string const json, typed;
extern NSURL const file;
extern std::optional<HistoryToken> const token;
extern Ref<StoreOpening> opening;
void show(std::string_view text);
void showBar(double fraction);
void showRows(LiveChanges const& changes);
void showStore(Ref<ManagedObjectStore> const& store);
