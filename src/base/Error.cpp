#include "base/Error.h"

namespace tessivox::base {

std::string describe(const std::exception_ptr& error) {
    try {
        if (error) std::rethrow_exception(error);
        return {};
    } catch (const std::exception& caught) {
        return caught.what();
    } catch (...) {
        return "Unknown error";
    }
}

}  // namespace tessivox::base
