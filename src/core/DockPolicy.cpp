#include "core/DockPolicy.h"

namespace tessivox::core {

void DockPolicy::apply() {
    const auto wanted = settings_.showInDock.get() ? ActivationPolicy::regular : ActivationPolicy::accessory;
    if (dock_.activationPolicy() != wanted) dock_.setActivationPolicy(wanted);
}

void DockPolicy::follow() {
    changes_ = store_.onChange([this] { apply(); });
}

}  // namespace tessivox::core
