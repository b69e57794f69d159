// What people write, and what they are told when it cannot be meant; diagnostics.py compiles these lines one by one.
#include "Tessarin/Tessarin.h"
#include "tests/platform/objectgraph/context/TypedLibrary.h"
#include <functional>
using namespace Tessarin;
using namespace Tessarin::tests::typed;

struct Point {
    int x, y;
};
extern Ref<NSManagedObjectContext> context;
extern Ref<Book> book;
extern Ref<Novel> novel;
extern Ref<Author> author;
extern Ref<NSObject> object;
extern NSDate date;
extern std::int64_t wide;
extern int number;
extern std::optional<std::string> text;
extern Value value;
extern Point point;
extern Closure<void()> closure;

//: compiles
book->set(Book::title, "Emma"), book->set(Book::title, std::string_view("Emma")), book->set(Book::title, Text("Emma"));
book->set(Book::subtitle, "x"), book->set(Book::subtitle, nullptr), book->set(Book::subtitle, text), book->set(Book::subtitle, std::nullopt);
book->set(Book::year, 1815), book->set(Book::year, wide), book->set(Book::pages, 5), book->set(Book::pages, number), book->set(Book::pages, 5L);
book->set(Book::price, 5), book->set(Book::price, number), book->set(Book::price, 1.5f), book->set(Book::cost, 5), book->set(Book::isDraft, true);
book->set(Book::bought, date), book->set(Book::bought, nullptr), book->set(Book::code, NSUUID::UUID());
book->set(Book::author, nullptr), book->set(Book::author, author), author->add(Author::books, novel), author->remove(Author::books, novel);
novel->set(Book::title, "x"), novel->set(Novel::genre, "y"), novel->set(Tag::name, "whose that is nobody said");
auto& b = *book; std::string s = b["title"]; if (b["title"] == "x" || b["title"] == nullptr || nullptr == b["author"]) s = b["subtitle"];
auto& b = *book; int n = b["pages"]; double d = b["price"]; Ref<Author> a = b["author"]; Value v = b["x"];
auto& b = *book; auto v = b["title"].get(); b["title"] = "x", b["year"] = 1815, b["title"] = nullptr, b["bought"] = date, b["author"] = author;
book->importDictionary({{"title", "Emma"}, {"year", 5}, {"author", Dictionary{{"name", "Jane"}}}, {"tags", nullptr}});
if (date < date || book->get(Book::bought) < date || date >= NSDate::now()) return;
unsigned char c = 5; Value v = c, w = std::uint64_t(-1), x = std::int8_t(1), y = text, z = std::size_t(7);
DefaultsKey<int> const volume("volume"); NSUserDefaults::set(5, volume); int n = NSUserDefaults::get(volume);
Closure<void()> one = [] {}; auto two = std::move(one); context->performBlock(std::move(two));
(void)context->fetch<Book>().where(Book::year == 5 && Book::title == text).first();
(void)((Book::author.in(std::vector{author}) && any(Book::tags) / Tag::name == "x") || !Book::isDraft);
auto& b = *book; auto const bought = b["bought"].get().as<NSDate>();

//: this attribute takes a value of its own kind
book->set(Book::title, nullptr);
book->set(Book::title, 0);
book->set(Book::title, text);
book->set(Book::isDraft, 1);
book->set(Book::cost, 1.5);
book->set(Book::bought, 5);
//: this attribute takes a number of its own kind
book->set(Book::year, 1.5);
book->set(Book::year, "1815");
book->set(Book::year, nullptr);
book->set(Book::pages, true);
book->set(Book::pages, 'x');
//: constant expression
book->set(Book::pages, wide);
//: thisNumberIsTooLargeForTheAttribute
book->set(Book::pages, 5'000'000'000);
//: takes a relationship of this class, and an object of the class that it leads to
author->add(Author::books, author);
book->set(Book::author, novel);
author->set(Book::author, author);
//: this is an attribute of another class
author->set(Book::title, "x");
//: this is a property of another class
author->get(Book::title);

//: a text is compared with a text, a number with a number, an object with one of its class
(void)(Book::title == 5);
(void)(Book::title == Book::year);
(void)(Book::author != novel);
(void)(Author::books / Book::title == "x");
//: texts, numbers and dates have an order
(void)(Book::year > "1815");
(void)(Book::isDraft < true);
//: an attribute has no properties
(void)(Book::title / Author::name);
//: belongs to another class than the relationship leads to
(void)(Book::author / Book::title == "x");
//: said of a path through a to-many relationship
(void)any(Book::author);
//: asks for a property of another class than the query is for
(void)context->fetch<Book>().where(Author::name == "x");
//: where(…) takes a condition such as
(void)context->fetch<Book>().where("year > 5");
//: && joins two conditions on objects of one class
(void)(Book::year == 5 && true);
(void)(Book::year == 5 && Author::name == "x");
//: contains texts
(void)Book::year.contains("x");
//: takes a list of what the property is compared with
(void)Book::year.in({"x"});
//: an order is by an attribute
(void)context->fetch<Author>().sortedBy(Author::books.ascending());
//: a type without a zero is read through an optional attribute
(void)book->NSManagedObject::get(Book::code);
//: unused
context->fetch<Book>().where(Book::year == 5);

//: T has no init that takes these arguments; its header lists the ways
(void)make<NSFetchRequest>(5);
//: a managed object is made by its context
(void)make<Book>();
//: abstract
new Book;
//: this is a slot, no value
auto& b = *book; auto t = b["title"]; if (t == "x") return;
//: deleted
auto& b = *book; auto t = b["title"]; std::string s = t;
auto& b = *book; std::string_view dangling = b["title"];
if (value) return;
Value v = &number;
Value v(&number);
unsigned char c = 5; Value v = &c;
Value v = 'a';
Closure<void()> two = closure;
context->performBlock(closure);
//: an argument of a predicate is a value or a range of values
(void)NSPredicate::predicateWithFormat("a == %@", point);
//: addObserver
NSNotificationCenter::defaultCenter()->addObserver(object, "name");
//: addAsObserver
object->addAsObserver("name");
//: const
Ref<NSManagedObjectContext const> fixed = context; (void)fixed->fetch<Book>();
auto const& fixed = *context; (void)fixed.allObjects<Book>();
//: Value
book->setValueForKey(point, "title");
