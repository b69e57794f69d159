#include "Tessarin/Tessarin.h"

using namespace Tessarin;
struct Note : ManagedObject<Note> {
    static inline Attribute<std::string> const title{"title"};
    static inline Attribute<std::string> const text{"text"};
    static inline Attribute<std::int64_t> const year{"year"};
};
extern Ref<NSManagedObjectContext> const context;
extern std::string const typed;
extern std::vector<Ref<Note>> const best; // what the example before found
void embolden(std::string_view text, std::size_t begin, std::size_t end);
