#include "library/AudioImportError.h"

#include <utility>

#include "base/Text.h"

namespace tessivox::library {
namespace {

struct Describe {
    std::string operator()(const AudioImportError::UnsupportedFormat& error) const {
        return base::filled(base::localized("Unsupported audio format: .{0}"),
                            {base::isUTF8(error.extension) ? error.extension : base::percentEncoded(error.extension)});
    }
    std::string operator()(const AudioImportError::ConversionFailed& error) const {
        return base::filled(base::localized("Audio conversion failed: {0}"), {error.message});
    }
    std::string operator()(const AudioImportError::FileCopyFailed& error) const {
        return base::filled(base::localized("File copy failed: {0}"), {error.message});
    }
    std::string operator()(const AudioImportError::DurationReadFailed&) const {
        return base::localized("Could not read audio duration");
    }
};

}  // namespace

AudioImportError::AudioImportError(Case which)
    : Error("import", static_cast<int>(which.index()), std::visit(Describe{}, which)), which_(std::move(which)) {}

}  // namespace tessivox::library
