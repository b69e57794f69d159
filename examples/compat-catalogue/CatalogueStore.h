#pragma once
#include "Model.h"
#include "Tessarin/store/ManagedObjectStore.h"

namespace Catalogue {

using Tessarin::Ref;

/// The catalogue's store, in the file that `path` tells.
class CatalogueStore : public Tessarin::ManagedObjectStore {
public:
    /// Opens the catalogue in `folder`, which is made when it does not exist. Throws ErrorException when that fails.
    static Ref<CatalogueStore> open(std::string const& folder);

    /// Whether this run made the file.
    bool isNew() const { return isNew_; }
    /// The bytes of the file and its log.
    std::uint64_t bytes() const;

    void didCreateDatabase() override { isNew_ = true; }

protected:
    CatalogueStore() = default;

private:
    bool isNew_ = false;
};

} // namespace Catalogue
