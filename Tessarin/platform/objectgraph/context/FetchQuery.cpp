#include "Tessarin/platform/objectgraph/context/FetchQuery.h"

#include "Tessarin/platform/objectgraph/context/NSManagedObjectContext.h"
#include "Tessarin/platform/runtime/Fatal.h"
#include "Tessarin/platform/runtime/OneLinePrivate.h"

namespace Tessarin {
namespace {

/// As every operation that prints says it: readers of logs know the line, and that the parenthesis is never closed.
bool tell(Ref<NSError> const& failure, NSFetchRequest const& request, Ref<NSError>* error) {
    if (error)
        *error = failure;
    else if (failure)
        printLine("Error (" + failure->description() + " executing fetch request: " + request.description());
    return !failure;
}

} // namespace

AnyFetchQuery::AnyFetchQuery(Ref<NSManagedObjectContext> context, std::string entityName)
    : context_(std::move(context)), entityName_(std::move(entityName)) {}

void AnyFetchQuery::add(query::ConditionParts const& condition) {
    if (condition_)
        condition_->join(NSCompoundPredicateType::And, condition);
    else
        condition_ = condition;
}

void AnyFetchQuery::addSearch(std::string_view words) {
    auto const coordinator = context_->persistentStoreCoordinator();
    auto const* entity = coordinator ? coordinator->managedObjectModel()->entityNamed(entityName_) : nullptr;
    std::vector<std::string> keyPaths;
    if (entity)
        for (auto const* attribute : entity->attributes())
            if (attribute->isFullText()) keyPaths.push_back(attribute->name());
    if (keyPaths.empty()) fatal("the entity " + entityName_ + " has no full-text attributes to be searched");
    add(query::ConditionParts(query::wordsFound(keyPaths, words)));
}

Ref<NSFetchRequest> AnyFetchQuery::request() const {
    auto request = make<NSFetchRequest>(entityName_);
    if (condition_) request->setPredicate(condition_->predicate());
    request->setSortDescriptors(sortDescriptors_);
    request->setRelationshipKeyPathsForPrefetching(prefetched_);
    request->setFetchLimit(limit_);
    request->setFetchOffset(offset_);
    request->setFetchBatchSize(batchSize_);
    return request;
}

std::int64_t AnyFetchQuery::count() const {
    Ref<NSError> error;
    auto const count = context_->countForFetchRequest(*request(), error);
    if (error) printLine("Error while counting fetch request for " + entityName_ + ": " + error->description());
    return count;
}

FetchExplanation AnyFetchQuery::explain() const {
    Ref<NSError> error;
    auto explanation = context_->explain(*request(), error);
    if (error) printLine("Error while explaining fetch request for " + entityName_ + ": " + error->description());
    return explanation;
}

bool AnyFetchQuery::take(FetchedObjectsTaker take, Ref<NSError>* error) const {
    auto const asked = request();
    Ref<NSError> failure;
    context_->executeFetchRequest(*asked, failure, take);
    return tell(failure, *asked, error);
}

Ref<NSAsynchronousFetch> AnyFetchQuery::fetchedAsync(FetchCompletion completion) const {
    return context_->fetchAsync(*request(), std::move(completion));
}

FetchedObjects AnyFetchQuery::fetched(Ref<NSError>* error) const {
    auto const asked = request();
    Ref<NSError> failure;
    auto list = context_->fetchObjects(*asked, failure);
    tell(failure, *asked, error);
    return list;
}

} // namespace Tessarin
