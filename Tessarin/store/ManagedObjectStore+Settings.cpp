// The settings of the class, which stores take where they are made without their own.
#include "Tessarin/store/ManagedObjectStore.h"

namespace Tessarin {
namespace {

/// The settings of the class, for the life of the process.
struct Settings {
    Cell<std::optional<NSURL>> modelURL;
    Cell<std::optional<std::string>> filename;
    Cell<std::string> groupIdentifier;
    Cell<std::optional<NSURL>> storeDirectoryURL;
};

Settings& settings() {
    static auto* const shared = new Settings;
    return *shared;
}

} // namespace

std::optional<NSURL> ManagedObjectStore::Type::generatedModelURL() const { return {}; }
void ManagedObjectStore::Type::preload() {}
void ManagedObjectStore::Type::setAppGroupIdentifier(std::string identifier, std::optional<std::string> filename) {
    setGroupIdentifier(std::move(identifier));
    if (filename) setFilename(std::move(filename));
}
ManagedObjectStore::Type& ManagedObjectStore::type() {
    static auto* const shared = new Type;
    return *shared;
}

std::optional<NSURL> ManagedObjectStore::modelURL() { return settings().modelURL.get(); }
void ManagedObjectStore::setModelURL(std::optional<NSURL> url) { settings().modelURL.set(std::move(url)); }
std::optional<std::string> ManagedObjectStore::filename() { return settings().filename.get(); }
void ManagedObjectStore::setFilename(std::optional<std::string> filename) { settings().filename.set(std::move(filename)); }
std::string ManagedObjectStore::groupIdentifier() { return settings().groupIdentifier.get(); }
void ManagedObjectStore::setGroupIdentifier(std::string identifier) { settings().groupIdentifier.set(std::move(identifier)); }
std::optional<NSURL> ManagedObjectStore::storeDirectoryURL() { return settings().storeDirectoryURL.get(); }
void ManagedObjectStore::setStoreDirectoryURL(std::optional<NSURL> url) { settings().storeDirectoryURL.set(std::move(url)); }
std::optional<std::string> ManagedObjectStore::modelName() { return {}; }

} // namespace Tessarin
