// Shown to gdb by run.py: what each variable of main must look like stands there.
#include "Tessarin/Tessarin.h"

using namespace Tessarin;

struct Book : ManagedObject<Book> {};
struct Plain : NSObject {};

[[gnu::noinline]] void stopHere() { asm volatile(""); }

int main() {
    Text const shortText = "Emma", longText = "She said: \"no\", and left the room.", noText;
    NSDate const date = NSDate::dateWithTimeIntervalSinceReferenceDate(3600.5);
    [[maybe_unused]] NSDate const farDate = NSDate::dateWithTimeIntervalSinceReferenceDate(1e15); // gdb looks at it
    Value const absent, yes = true, number = -42, real = 0.5, words = "a longer text of more bytes", when = date;
    Value const uuid = Value::uuid({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 255}),
                url = Value::url("https://example.org/a");
    Value const price = *Decimal::fromText("-1234567890123456789012345.678"), list = List{1, "two", Value()};
    std::array const raw{std::byte{0xca}, std::byte{0xfe}};
    Value const bytes = Value::data(raw), nested = Dictionary{{"year", 1815}, {"titles", List{"Emma"}}};
    Dictionary const dictionary{{"title", "Emma"}, {"year", 1815}};
    ValueSet set;
    set.insert(7);
    Value const setOfOne = set;

    registerClass<Book, NSManagedObject>();
    auto const model = ModelBuilder()
                           .entity("Book", {.className = "Book"})
                           .attribute("title", NSAttributeType::String)
                           .attribute("year", NSAttributeType::Integer64)
                           .build();
    auto const coordinator = make<NSPersistentStoreCoordinator>(model);
    Ref<NSError> error;
    coordinator->addPersistentStoreWithType(NSInMemoryStoreType, {}, NSURL::fileURLWithPath("/"), {}, error);
    auto const context = make<NSManagedObjectContext>(NSManagedObjectContextConcurrencyType::MainQueue);
    context->setPersistentStoreCoordinator(coordinator);
    auto const saved = context->insertObject<Book>();
    saved->setValueForKey("Emma", "title");
    context->save(error);
    saved->setValueForKey(1815, "year");
    auto const fresh = context->insertNewObject("Book");
    fresh->setValueForKey("Persuasion", "title");
    Value const boxedObject = saved;
    Ref<NSObject> const plain = make<Plain>(), nothing;
    stopHere();
    return int(absent.integer() + list.integer() + shortText.size() + longText.size() + noText.size() + dictionary.size());
}
