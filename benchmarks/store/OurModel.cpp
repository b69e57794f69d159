#include "benchmarks/store/OurModel.h"

#include "Tessarin/platform/objectgraph/model/ModelBuilder.h"

#include <unordered_map>

namespace Tessarin::benchmarks {
namespace {

thread_local KnownAuthors* currentAuthors = nullptr;

template <class T> std::string classNameOf() { return registerClass<T, NSManagedObject>().name(); }

Ref<NSManagedObjectModel> const& libraryModel() {
    using Type = NSAttributeType;
    static Ref<NSManagedObjectModel> const model = ModelBuilder()
                                                       .entity("Author", {.className = classNameOf<Author>()})
                                                       .attribute("name", Type::String, {.indexed = true})
                                                       .attribute("birth", Type::Date)
                                                       .attribute("rating", Type::Double)
                                                       .toMany("books", "Book", {.inverse = "author"})
                                                       .entity("Tag", {.className = classNameOf<Tag>()})
                                                       .attribute("name", Type::String)
                                                       .toMany("books", "Book", {.inverse = "tags"})
                                                       .entity("Book", {.className = classNameOf<Book>()})
                                                       .attribute("code", Type::String, {.indexed = true})
                                                       .attribute("title", Type::String)
                                                       .attribute("year", Type::Integer16)
                                                       .attribute("price", Type::Double)
                                                       .attribute("inPrint", Type::Boolean)
                                                       .toOne("author", "Author", {.inverse = "books"})
                                                       .toMany("tags", "Tag", {.inverse = "books"})
                                                       .build();
    return model;
}

} // namespace

KnownAuthors::KnownAuthors(NSManagedObjectContext& context) : context_(context) {
    for (auto const& author : context.allObjects<Author>()) authors_.emplace(author->get(Author::name), author);
    currentAuthors = this;
}

KnownAuthors::~KnownAuthors() { currentAuthors = nullptr; }

KnownAuthors* KnownAuthors::current() { return currentAuthors; }

Ref<Author> const& KnownAuthors::findOrInsert(std::string_view name) {
    if (auto const found = authors_.find(name); found != authors_.end()) return found->second;
    return authors_.emplace(name, context_.insertObject<Author>()).first->second;
}

Ref<NSManagedObject> Book::findExistingRelationship(std::string const& entityName, Dictionary const& forDictionary) {
    // An unknown author is inserted right here, so that the next book finds it; the import then fills it.
    if (auto* known = KnownAuthors::current(); known && entityName == "Author")
        return known->findOrInsert(forDictionary["name"].text());
    return NSManagedObject::findExistingRelationship(entityName, forDictionary);
}

Stack::Stack(std::string const& file, Synchronous synchronous, History history) {
    coordinator = make<NSPersistentStoreCoordinator>(libraryModel());
    Dictionary const pragmas{{"synchronous", synchronous == Synchronous::Full ? "FULL" : "NORMAL"}, {"cache_size", -8192}};
    Ref<NSError> error;
    if (!coordinator->addPersistentStoreWithType(NSSQLiteStoreType, {}, NSURL::fileURLWithPath(file),
                                                 {{NSSQLitePragmasOption, pragmas},
                                                  {NSStoreHistoryOption, history != History::None},
                                                  {NSStoreMergesOthersOption, history == History::Merged}},
                                                 error))
        throw ErrorException(error);
    root = make<NSManagedObjectContext>(NSManagedObjectContextConcurrencyType::PrivateQueue);
    root->setPersistentStoreCoordinator(coordinator);
    main = make<NSManagedObjectContext>(NSManagedObjectContextConcurrencyType::MainQueue);
    main->setParentContext(root);
}

Ref<NSManagedObjectModel> const& Stack::model() { return libraryModel(); }

Ref<NSManagedObjectContext> Stack::makeWorker() const {
    auto worker = make<NSManagedObjectContext>(NSManagedObjectContextConcurrencyType::PrivateQueue);
    worker->setParentContext(main);
    return worker;
}

void Stack::saveToDisk(NSManagedObjectContext& worker) {
    for (auto* context : {&worker, main.get(), root.get()}) context->performBlockAndWait([&] { saveOrThrow(*context); });
}

void saveOrThrow(NSManagedObjectContext& context) {
    Ref<NSError> error;
    if (!context.save(error)) throw ErrorException(error);
}

LibraryInserter::LibraryInserter(NSManagedObjectContext& worker, Library const& library, Start start) : worker_(worker) {
    if (start == Start::Empty)
        insertAuthorsAndTags(library);
    else
        findAuthorsAndTags(library);
}

void LibraryInserter::insertAuthorsAndTags(Library const& library) {
    for (auto const& each : library.authors) {
        auto const& author = authors_.emplace_back(worker_.insertObject<Author>());
        author->set<std::string_view>(Author::name, each.name);
        author->set(Author::birth, NSDate::dateWithTimeIntervalSinceReferenceDate(each.birth));
        author->set(Author::rating, each.rating);
    }
    for (auto const& name : library.tags) tags_.emplace_back(worker_.insertObject<Tag>())->set<std::string_view>(Tag::name, name);
}

void LibraryInserter::findAuthorsAndTags(Library const& library) {
    std::unordered_map<std::string_view, Ref<Author>> authors;
    for (auto const& author : worker_.allObjects<Author>()) authors.emplace(author->get(Author::name), author);
    for (auto const& author : library.authors) authors_.push_back(authors.at(author.name));
    std::unordered_map<std::string_view, Ref<Tag>> tags;
    for (auto const& tag : worker_.allObjects<Tag>()) tags.emplace(tag->get(Tag::name), tag);
    for (auto const& tag : library.tags) tags_.push_back(tags.at(tag));
}

void LibraryInserter::insertBooks(std::span<Library::Book const> books) {
    for (auto const& each : books) {
        auto const book = worker_.insertObject<Book>();
        book->set<std::string_view>(Book::code, each.code);
        book->set<std::string_view>(Book::title, each.title);
        book->set<std::int64_t>(Book::year, each.year);
        book->set(Book::price, each.price);
        book->set(Book::inPrint, each.inPrint);
        book->set(Book::author, authors_[each.author]);
        for (auto const tag : each.tags) book->add(Book::tags, tags_[tag]);
    }
}

} // namespace Tessarin::benchmarks
