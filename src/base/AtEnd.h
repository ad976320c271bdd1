#pragma once

#include <utility>

namespace tessivox::base {

/// Calls a function at the end of its scope, however that ends: in a coroutine also when its task is destroyed.
template <typename Function>
class [[nodiscard]] AtEnd {
public:
    explicit AtEnd(Function function) : function_(std::move(function)) {}
    AtEnd(const AtEnd&) = delete;
    AtEnd& operator=(const AtEnd&) = delete;
    ~AtEnd() { function_(); }

private:
    Function function_;
};

}  // namespace tessivox::base
