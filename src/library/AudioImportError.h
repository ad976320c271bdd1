#pragma once

#include <string>
#include <variant>

#include "base/Error.h"

namespace tessivox::library {

/// Why a file could not be imported. The description is the user's sentence.
class AudioImportError : public base::Error {
public:
    struct UnsupportedFormat {
        std::string extension;  ///< in lower case, without the dot
    };
    struct ConversionFailed {
        std::string message;
    };
    struct FileCopyFailed {
        std::string message;
    };
    struct DurationReadFailed {};
    using Case = std::variant<UnsupportedFormat, ConversionFailed, FileCopyFailed, DurationReadFailed>;

    AudioImportError(Case which);  // NOLINT: throw AudioImportError(DurationReadFailed{}) and the like

    const Case& which() const noexcept { return which_; }

private:
    Case which_;
};

}  // namespace tessivox::library
