#pragma once
#include "Tessarin/platform/objectgraph/model/NSEntityDescription.h"

namespace Tessarin {

class NSBundle;
class NSURL;

/// The entities that a store holds: loaded from a document, merged from several, or built in code with `ModelBuilder`.
/// Immutable; any thread.
///
///     auto model = NSManagedObjectModel::contentsOfURL(bundle.URLForResource("Library", "xcdatamodeld"));
///     if (!model) …;
///     auto const* book = model->entityNamed("Book");
class TESSARIN_API NSManagedObjectModel : public NSObject {
public:
    /// The model of a versioned folder (`.xcdatamodeld`: its current version, or its only one), of a version folder
    /// (`.xcdatamodel`) or of a document file. Null when there is none, when it is damaged or contradicts itself, and when a
    /// versioned folder does not say which of several versions is current; `problem` then says why.
    static Ref<NSManagedObjectModel> contentsOfURL(NSURL const& url, std::string* problem = nullptr);
    /// Every version of such a folder by its name, without ending. Versions that do not load are left out.
    static std::map<std::string, Ref<NSManagedObjectModel>, std::less<>> versionsOfURL(NSURL const& url);

    /// The union of all models that stand directly in the bundles' resources; of the main bundle when none are given. Null
    /// when there is none, when one of them does not load (half a model would drop half of the data), and on a conflict.
    static Ref<NSManagedObjectModel> mergedModelFromBundles(std::optional<std::vector<Ref<NSBundle>>> const& bundles = {});
    /// The union of models. Null when two of them hold different entities of one name.
    static Ref<NSManagedObjectModel> modelByMergingModels(std::span<Ref<NSManagedObjectModel> const> models);

    /// The model of a plain description; null when it contradicts itself: a duplicate name, a missing parent or destination,
    /// a circle of parents; or when it has a name that nothing can reach (docs/models.md). `problem` then says what is wrong.
    static Ref<NSManagedObjectModel> modelWithDefinition(ModelDefinition definition, std::string* problem = nullptr);

    using EntitiesByName = std::map<std::string, Ref<NSEntityDescription>, std::less<>>;
    /// In the order of the document.
    std::vector<Ref<NSEntityDescription>> const& entities() const noexcept { return entities_; }
    EntitiesByName const& entitiesByName() const noexcept { return entitiesByName_; }
    /// Null when there is none. One hash look-up, no allocation.
    NSEntityDescription const* entityNamed(std::string_view name) const noexcept {
        auto const at = names_.find(name);
        return at == NameIndex::none ? nullptr : entities_[at].get();
    }

    /// The label that the author gave this version; free text, often empty.
    std::string const& versionIdentifier() const noexcept { return versionIdentifier_; }
    std::vector<std::string> configurations() const;
    /// The entities of a named subset; all of them when the configuration is absent, none when it is unknown.
    std::vector<NSEntityDescription const*> entitiesForConfiguration(std::optional<std::string_view> configuration) const;

    std::span<FetchRequestTemplate const> fetchRequestTemplates() const noexcept;
    FetchRequestTemplate const* fetchRequestTemplateNamed(std::string_view name) const noexcept;

    std::map<std::string, std::string> entityVersionHashesByName() const;
    /// One hash of all entities' hashes.
    std::string const& versionHash() const noexcept { return versionHash_; }
    /// The plain description from which an equal model can be built.
    ModelDefinition definition() const;

    /// The entities, with attributes and relationships, as a picture in Graphviz's language: `dot -Tsvg`. With `notes` below an
    /// entity's name.
    std::string graphvizText(std::map<std::string, std::string, std::less<>> const& notes = {}) const;

    std::string description() const override;

protected:
    NSManagedObjectModel() = default;

private:
    friend class ModelAssembler;
    std::string versionIdentifier_;
    std::vector<Ref<NSEntityDescription>> entities_;
    EntitiesByName entitiesByName_;
    NameIndex names_; // positions in entities_
    std::map<std::string, std::vector<std::string>, std::less<>> configurations_;
    std::vector<FetchRequestTemplate> templates_;
    std::string versionHash_;
};

} // namespace Tessarin
