#pragma once
#include "Tessarin/platform/foundation/files/NSFileManager.h"
#include "Tessarin/platform/objectgraph/model/ModelDocument.h"
#include "Tessarin/store/ManagedObjectStore.h"
#include "tests/support/Contexts.h"
#include "tests/support/Eventually.h"
#include "tests/support/MainThread.h"
#include "tests/support/TemporaryFolder.h"
#include <functional>
#include <future>

namespace Tessarin::tests {

/// A person whose import may be bent by the test that runs.
struct Person : NSManagedObject {
    std::optional<std::string> dictionaryKeyToAttributeName(std::string const& key) override {
        return rename ? rename(key) : NSManagedObject::dictionaryKeyToAttributeName(key);
    }
    Ref<NSManagedObject> findExistingRelationship(std::string const& entity, Dictionary const& values) override {
        return find ? find(*this, entity, values) : NSManagedObject::findExistingRelationship(entity, values);
    }
    static inline std::function<std::optional<std::string>(std::string const&)> rename;
    static inline std::function<Ref<NSManagedObject>(Person&, std::string const&, Dictionary const&)> find;
};
struct Pet : NSManagedObject {};

inline constexpr char const* peopleAndPets = R"(<model>
  <entity name="Person" representedClassName="Tessarin.tests.Person">
    <attribute name="name" optional="YES" attributeType="String"/><attribute name="age" optional="YES" attributeType="Integer 16"/>
    <attribute name="height" optional="YES" attributeType="Double"/><attribute name="weight" optional="YES" attributeType="Float"/>
    <attribute name="balance" optional="YES" attributeType="Decimal"/><attribute name="active" optional="YES" attributeType="Boolean"/>
    <attribute name="born" optional="YES" attributeType="Date"/><attribute name="photo" optional="YES" attributeType="Binary"/>
    <relationship name="boss" optional="YES" maxCount="1" destinationEntity="Person" inverseName="reports" inverseEntity="Person"/>
    <relationship name="reports" optional="YES" toMany="YES" destinationEntity="Person" inverseName="boss" inverseEntity="Person"/>
    <relationship name="pets" optional="YES" toMany="YES" destinationEntity="Pet" inverseName="owner" inverseEntity="Pet"/>
  </entity>
  <entity name="Pet" representedClassName="Tessarin.tests.Pet">
    <attribute name="name" optional="NO" attributeType="String"/>
    <relationship name="owner" optional="YES" maxCount="1" destinationEntity="Person" inverseName="pets" inverseEntity="Person"/>
  </entity>
</model>)";

inline Ref<NSManagedObjectModel> peopleModel() {
    registerClass<Person, NSManagedObject>();
    registerClass<Pet, NSManagedObject>();
    std::string problem;
    return NSManagedObjectModel::modelWithDefinition(parseModelDocument(peopleAndPets, problem).value(), &problem);
}

/// A user's home with a model document in it; stores made here keep their files in its Documents, and end with it: one that
/// lives on hears the saves of later tests.
class StoreHome {
public:
    StoreHome() {
        peopleModel();
        folder.write("People.xcdatamodel/contents", peopleAndPets);
    }
    ~StoreHome() {
        EXPECT_TRUE(eventually([&] {
            std::erase_if(made_, [](auto const& each) {
                if (auto const store = each.lock()) store->setActiveContexts({});
                return each.expired();
            });
            return made_.empty();
        }));
    }
    template <class Store = ManagedObjectStore> Ref<Store> store(std::string const& name = "Notes") {
        return store<Store>(StoreOptions{.modelURL = url("People.xcdatamodel"), .filename = name});
    }
    template <class Store = ManagedObjectStore> Ref<Store> store(StoreOptions options) {
        auto store = make<Store>(std::move(options));
        made_.push_back(store);
        return store;
    }
    NSURL url(std::string_view name) const { return folder.url(name); }
    NSURL documents(std::string const& name) const { return url("Documents/" + name); }

    TemporaryFolder folder;

private:
    std::vector<WeakRef<ManagedObjectStore>> made_;
    Environment variables_[3] = {
        {"HOME", folder.path()}, {"XDG_CONFIG_HOME", std::nullopt}, {"XDG_DATA_HOME", folder.path("data")}};
};

/// A context over an empty store in memory, of the model above.
inline Ref<NSManagedObjectContext> contextInMemory() { return contextOver(coordinatorOver(peopleModel())); }

/// How many records the store itself has, whatever its contexts have not saved.
inline std::int64_t countInStore(NSManagedObjectContext const& context, char const* entity) {
    auto const reader = contextOver(context.persistentStoreCoordinator());
    std::int64_t count = 0;
    reader->performBlockAndWait([&] { count = reader->count(entity); });
    return count;
}

inline Ref<NSManagedObject> insert(NSManagedObjectContext& context, char const* entity, std::string const& name) {
    auto object = context.insertEntityNamed(entity);
    (*object)["name"] = name;
    return object;
}

/// Adds a record by way of a worker, without waiting for the file.
inline Ref<NSManagedObjectContext> saveOne(ManagedObjectStore& store, std::string const& name) {
    auto worker = store.createWorkerContext();
    worker->performBlockAndWait([&] { insert(*worker, "Person", name); });
    worker->saveAndWait();
    return worker;
}

inline void waitForFile(ManagedObjectStore& store) {
    ASSERT_EQ(dispatch_group_wait(store.saveDispatchGroup(), dispatch_time(DISPATCH_TIME_NOW, 60'000'000'000)), 0);
}

/// The names in the file of a store, sorted, as another coordinator reads them.
inline std::string namesInFile(ManagedObjectStore const& store, char const* entity = "Person") {
    auto const file = store.storeURL().URLByAppendingPathComponent(store.storeURL().lastPathComponent() + ".db");
    auto const context = contextOver(coordinatorOver(store.model(), NSSQLiteStoreType, file));
    std::string names;
    context->performBlockAndWait([&] { names = listed(fetched(*context, entity, nullptr, {by("name")}), "name"); });
    return names;
}

inline std::string printedBy(std::function<void()> const& work) {
    testing::internal::CaptureStdout();
    work();
    return testing::internal::GetCapturedStdout();
}

/// The names of the contexts that save while it lives, in the order of their first save. To hear them in that order it has to
/// be there before a store whose observing sets off the next save.
class SaveLog {
public:
    std::string text() const {
        std::string copy;
        dispatch_sync(order_, [&] { copy = text_; });
        return copy;
    }
    void clear() {
        dispatch_sync(order_, [&] { text_.clear(); });
    }

private:
    dispatch_queue_t const order_ = dispatch_queue_create("SaveLog", DISPATCH_QUEUE_SERIAL);
    std::string text_; // on order_
    std::shared_ptr<void> listener_ = listening(nullptr, NSManagedObjectContextDidSaveNotification, [this](auto const& note) {
        auto const name = std::static_pointer_cast<NSManagedObjectContext>(note->object())->name() + "; ";
        dispatch_sync(order_, [&] { text_ += text_.find(name) == text_.npos ? name : ""; });
    });
};

/// What the completion is told, and that it comes on the main queue.
inline std::future<Ref<NSError>> closing(ManagedObjectStore& store,
                                         ManagedObjectStore::WhenUnsaved unsaved = ManagedObjectStore::WhenUnsaved::StayOpen) {
    auto told = std::make_shared<std::promise<Ref<NSError>>>();
    store.close(
        [told](Ref<NSError> const& error) {
            EXPECT_TRUE(Dispatcher::inMainQueue());
            told->set_value(error);
        },
        unsaved);
    return told->get_future();
}

} // namespace Tessarin::tests
