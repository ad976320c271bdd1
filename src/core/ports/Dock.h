#pragma once

namespace tessivox::core {

/// Whether the program is shown among the running applications (regular) or only by its status icon (accessory).
enum class ActivationPolicy { regular, accessory };

/// The desktop's dock or task bar, as far as this process stands in it. Main thread.
class Dock {
public:
    virtual ~Dock() = default;
    virtual ActivationPolicy activationPolicy() const = 0;
    /// May make windows blink or lose the focus, so it is called only for a change.
    virtual void setActivationPolicy(ActivationPolicy policy) = 0;
};

}  // namespace tessivox::core
