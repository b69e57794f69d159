#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/runtime/Ref.h"

namespace Tessarin {

/// Objects attached to other objects under the identity of a key, kept until cleared or until the owner is destroyed.
/// Costs an owner nothing until it is used. Any thread.
TESSARIN_API void setAssociatedObject(NSObject const& owner, void const* key, Ref<NSObject> object);
TESSARIN_API Ref<NSObject> associatedObject(NSObject const& owner, void const* key);
/// Releases everything attached to an owner that is being destroyed.
void removeAssociatedObjects(NSObject const& owner) noexcept;

} // namespace Tessarin
