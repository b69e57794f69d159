#pragma once
#include "Tessarin/platform/foundation/notifications/NSNotification.h"
#include "Tessarin/platform/objectgraph/context/ContextStatePrivate.h"
#include "Tessarin/platform/objectgraph/context/DeletedRecordsPrivate.h"
#include <mutex>

namespace Tessarin {

/// A context's notification. The sets of objects in its userInfo are made when somebody asks for them, which must happen
/// while it is posted, on the context's queue: most observers only want to know that something changed.
class ContextNotification : public NSNotification {
public:
    Value const& userInfo() const override;

protected:
    ContextNotification() = default;
    using NSNotification::init;
    virtual void init(Text name, Ref<NSManagedObjectContext> context);
    virtual Dictionary makeUserInfo(NSManagedObjectContext& context) const = 0;

private:
    mutable std::once_flag made_;
    mutable Value lazyInfo_; // guarded by made_
};

/// Carries, beside, what a save handed on, or what a deletion of everything deleted: other contexts of the coordinator merge
/// that.
class ContextDidSaveNotification : public ContextNotification {
public:
    ChangeSets const& sets() const noexcept { return sets_; }
    DeletedRecords const& deleted() const noexcept { return deleted_; }

protected:
    ContextDidSaveNotification() = default;
    using ContextNotification::init;
    virtual void init(Ref<NSManagedObjectContext> context, ChangeSets sets, DeletedRecords deleted = {});
    Dictionary makeUserInfo(NSManagedObjectContext& context) const override;

private:
    ChangeSets sets_;
    DeletedRecords deleted_;
};

/// Carries what happened since the last one.
class ContextDidChangeNotification : public ContextNotification {
protected:
    ContextDidChangeNotification() = default;
    using ContextNotification::init;
    virtual void init(Ref<NSManagedObjectContext> context, ContextNews::Entries entries);
    Dictionary makeUserInfo(NSManagedObjectContext& context) const override;

private:
    ContextNews::Entries entries_;
};

/// Carries why a store refused what is in the sets.
class ContextRefusalNotification : public ContextNotification {
protected:
    ContextRefusalNotification() = default;
    using ContextNotification::init;
    virtual void init(Ref<NSManagedObjectContext> context, ChangeSets sets, Ref<NSError> reason);
    Dictionary makeUserInfo(NSManagedObjectContext& context) const override;

private:
    ChangeSets sets_;
    Ref<NSError> reason_;
};

void postDidSave(NSManagedObjectContext& context, ChangeSets sets, DeletedRecords deleted = {});
void postDidRefuse(NSManagedObjectContext& context, ChangeSets sets, Ref<NSError> reason);
/// Announces the news, if there are any.
void postDidChange(NSManagedObjectContext& context);

} // namespace Tessarin
