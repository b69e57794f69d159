#include "Tessarin/Tessarin.h"

using namespace Tessarin;
struct Note : ManagedObject<Note> {
    static inline Attribute<std::string> const title{"title"};
};
extern Ref<NSManagedObjectContext> const context;
extern Ref<ManagedObjectStore> const store;
extern Ref<Note> const note, other;
extern Ref<UndoManager> const undo;
void showMenu(std::string const& text, bool isEnabled);
void importNotes(NSManagedObjectContext& context);
