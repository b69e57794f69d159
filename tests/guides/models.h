#include "Tessarin/Tessarin.h"

using namespace Tessarin;
class Person;
extern Ref<NSManagedObjectContext> const context;
extern NSURL const folder;
void show(std::string_view text);
