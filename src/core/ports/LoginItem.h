#pragma once

namespace tessivox::core {

/// The desktop's list of programs that start with the session. Main thread. Both operations throw base::Error if the
/// list cannot be changed; repeating one is fine.
class LoginItem {
public:
    virtual ~LoginItem() = default;
    virtual void registerItem() = 0;
    virtual void unregisterItem() = 0;
};

}  // namespace tessivox::core
