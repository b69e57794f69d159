#include "Tessarin/dispatch/NetworkActivityIndicator.h"

namespace Tessarin {
namespace {

[[maybe_unused]] auto const& registered = registerClass<NetworkActivityIndicator>();

} // namespace

SelectorTable NetworkActivityIndicator::selectors() {
    return {{"increment"_sel, &NetworkActivityIndicator::increment},
            {"decrement"_sel, &NetworkActivityIndicator::decrement},
            {"isVisible"_sel, &NetworkActivityIndicator::isVisible},
            {"hideIndicator"_sel, &NetworkActivityIndicator::hideIndicator}};
}

} // namespace Tessarin
