#pragma once
#include "Model.h"
#include <string>
#include <unordered_map>
#include <vector>

namespace Catalogue {

/// What a worker context knows to be in the store already, so that the import's hooks find objects without a fetch each.
/// Attached to the context; used on its queue.
class ImportIndex : public Tessarin::NSObject {
public:
    /// The index of the object's context. Fatal when there is none.
    static ImportIndex& of(NSManagedObject const& object);

    /// Null when unknown.
    Ref<Browser> browser(std::string_view identifier) const;
    Ref<Release> release(Browser& browser, std::string_view version);
    Ref<Feature> feature(std::string_view path) const;
    Ref<Statement> statement(Feature& feature, std::string_view browser, std::int64_t position);

    void add(Ref<Browser> const& browser);
    void add(Ref<Feature> const& feature, std::string_view path);
    /// Looks up the features that the store has under these paths, all in one fetch.
    void findFeatures(std::vector<std::string> const& paths);
    /// The statements of the feature asked for last that nobody has asked for: the data does not hold them any more.
    std::vector<Ref<Statement>> takeUnclaimed(Feature& feature);

    /// Attaches an index with all browsers to the context.
    virtual void init(Tessarin::NSManagedObjectContext& context);

protected:
    ImportIndex() = default;
    using NSObject::init;

private:
    struct Hash {
        using is_transparent = void;
        std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>{}(text); }
    };
    template <class T> using ByText = std::unordered_map<std::string, T, Hash, std::equal_to<>>;

    void lookAt(Feature& feature);

    Tessarin::WeakRef<Tessarin::NSManagedObjectContext> context_;
    ByText<Ref<Browser>> browsers_;
    ByText<Ref<Feature>> features_;
    Browser* browserOfReleases_ = nullptr;
    ByText<Ref<Release>> releases_; // of browserOfReleases_
    Feature* featureOfStatements_ = nullptr;
    ByText<Ref<Statement>> statements_; // of featureOfStatements_, unclaimed, by "browser#position"
};

} // namespace Catalogue
