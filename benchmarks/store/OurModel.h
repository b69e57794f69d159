#pragma once
#include "Tessarin/platform/objectgraph/context/NSManagedObjectContext.h"
#include "benchmarks/store/Contender.h"
#include <span>
#include <unordered_map>

namespace Tessarin::benchmarks {

class Author : public NSManagedObject {
public:
    static inline Attribute<std::string_view> const name{"name"};
    static inline Attribute<NSDate> const birth{"birth"};
    static inline Attribute<double> const rating{"rating"};

protected:
    Author() = default;
};

class Tag : public NSManagedObject {
public:
    static inline Attribute<std::string_view> const name{"name"};

protected:
    Tag() = default;
};

class Book : public NSManagedObject {
public:
    static inline Attribute<std::string_view> const code{"code"};
    static inline Attribute<std::string_view> const title{"title"};
    static inline Attribute<std::int64_t> const year{"year"};
    static inline Attribute<double> const price{"price"};
    static inline Attribute<bool> const inPrint{"inPrint"};
    static inline ToOne<Author> const author{"author"};
    static inline ToMany<Tag> const tags{"tags"};

    Ref<NSManagedObject> findExistingRelationship(std::string const& entityName, Dictionary const& forDictionary) override;

protected:
    Book() = default;
};

/// The authors that an import has met, by name: asking the store once per book would be the slow way.
class KnownAuthors {
public:
    /// Those of the store to begin with. Books imported on this thread ask this object until it goes.
    explicit KnownAuthors(NSManagedObjectContext& context);
    ~KnownAuthors();
    KnownAuthors(KnownAuthors const&) = delete;
    KnownAuthors& operator=(KnownAuthors const&) = delete;

    static KnownAuthors* current();
    Ref<Author> const& findOrInsert(std::string_view name);

private:
    struct Hash {
        using is_transparent = void;
        std::size_t operator()(std::string_view name) const { return std::hash<std::string_view>{}(name); }
    };
    NSManagedObjectContext& context_;
    std::unordered_map<std::string, Ref<Author>, Hash, std::equal_to<>> authors_;
};

/// A store's file with the three levels of contexts that an application has over it.
class Stack {
public:
    enum class History { None, Kept, Merged };
    Stack(std::string const& file, Synchronous synchronous, History history = History::None);
    static Ref<NSManagedObjectModel> const& model();

    Ref<NSManagedObjectContext> makeWorker() const;
    /// Saves a worker and everything above it, to the disk. On the main thread; throws what fails.
    void saveToDisk(NSManagedObjectContext& worker);

    Ref<NSPersistentStoreCoordinator> coordinator;
    Ref<NSManagedObjectContext> root; // writes to the file on a queue of its own
    Ref<NSManagedObjectContext> main; // the user interface's
};

/// Throws unless the context could be saved.
void saveOrThrow(NSManagedObjectContext& context);

/// Inserts the library's records into the worker, on its queue.
class LibraryInserter {
public:
    /// Whether the authors and tags are inserted, too, or looked up.
    enum class Start { Empty, Filled };
    LibraryInserter(NSManagedObjectContext& worker, Library const& library, Start start);
    void insertBooks(std::span<Library::Book const> books);

private:
    void insertAuthorsAndTags(Library const& library);
    void findAuthorsAndTags(Library const& library);

    NSManagedObjectContext& worker_;
    std::vector<Ref<Author>> authors_;
    std::vector<Ref<Tag>> tags_;
};

} // namespace Tessarin::benchmarks
