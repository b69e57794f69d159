#include "Tessarin/platform/objectgraph/query/NSFetchRequest.h"

namespace Tessarin {

std::string NSFetchRequest::description() const {
    std::string text = "<NSFetchRequest> (entity: " + entityName_ + "; predicate: (" +
                       (predicate_ ? predicate_->predicateFormat() : "") + "); sortDescriptors: (";
    for (auto const& descriptor : sortDescriptors_) text += descriptor->description();
    text += ");";
    if (fetchLimit_ != 0) text += " limit: " + std::to_string(fetchLimit_) + ";";
    if (fetchOffset_ != 0) text += " offset: " + std::to_string(fetchOffset_) + ";";
    return text + ")";
}

} // namespace Tessarin
