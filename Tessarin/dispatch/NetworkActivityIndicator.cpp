#include "Tessarin/dispatch/NetworkActivityIndicator.h"

namespace Tessarin {
namespace {

[[maybe_unused]] auto const& registered = registerClass<NetworkActivityIndicator>();

} // namespace

SelectorTable NetworkActivityIndicator::selectors() { return {{"hideIndicator"_sel, &NetworkActivityIndicator::hideIndicator}}; }

} // namespace Tessarin
