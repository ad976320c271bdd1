#include "platform/linux/gio/ControlProtocol.h"

#include <glib.h>

#include <algorithm>
#include <string>
#include <string_view>

#include "base/Text.h"

namespace tessivox::gio {
namespace {

using core::ProgramRequest;
using core::ProgramStatus;

constexpr std::string_view kFileScheme = "file://";
constexpr const char* kNames[] = {"Recording", "Paused", "CallDetected", "Seconds", "File"};

struct Method {
    ProgramRequest request;
    const char* name;
};
constexpr Method kMethods[] = {
    {ProgramRequest::start, "Start"},   {ProgramRequest::stop, "Stop"},     {ProgramRequest::pause, "Pause"},
    {ProgramRequest::resume, "Resume"}, {ProgramRequest::toggle, "Toggle"}, {ProgramRequest::status, "Status"},
};

std::string urlOf(const ProgramStatus& status) {
    return status.file ? std::string(kFileScheme) + base::percentEncoded(status.file->native()) : std::string();
}

std::optional<std::filesystem::path> fileOf(std::string_view url) {
    if (!url.starts_with(kFileScheme)) return std::nullopt;
    return base::percentDecoded(url.substr(kFileScheme.size()));
}

}  // namespace

const char* methodOf(ProgramRequest request) {
    const auto* found = std::ranges::find(kMethods, request, &Method::request);
    return found == std::end(kMethods) ? "Activate" : found->name;
}

std::optional<ProgramRequest> requestOf(const char* method) {
    for (const auto& known : kMethods) {
        if (g_ascii_strcasecmp(known.name, method) == 0) return known.request;
    }
    return std::nullopt;
}

GVariant* valueOf(const ProgramStatus& status, const char* name) {
    const std::string_view asked = name;
    if (asked == "Recording") return g_variant_new_boolean(status.isRecording);
    if (asked == "Paused") return g_variant_new_boolean(status.isPaused);
    if (asked == "CallDetected") return g_variant_new_boolean(status.isCallDetected);
    if (asked == "Seconds") return g_variant_new_double(status.seconds);
    if (asked == "File") return g_variant_new_string(urlOf(status).c_str());
    return nullptr;
}

GVariant* variantOf(const ProgramStatus& status) {
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE_VARDICT);
    for (const auto* name : kNames) g_variant_builder_add(&builder, "{sv}", name, valueOf(status, name));
    if (status.missingSeconds > 0)
        g_variant_builder_add(&builder, "{sv}", "MissingSeconds", g_variant_new_double(status.missingSeconds));
    return g_variant_builder_end(&builder);
}

core::ProgramStatus statusOf(GVariant* dictionary) {
    const auto flag = [&](const char* name) {
        gboolean value = FALSE;
        return g_variant_lookup(dictionary, name, "b", &value) && value;
    };
    ProgramStatus status;
    status.isRecording = flag("Recording");
    status.isPaused = flag("Paused");
    status.isCallDetected = flag("CallDetected");
    g_variant_lookup(dictionary, "Seconds", "d", &status.seconds);
    g_variant_lookup(dictionary, "MissingSeconds", "d", &status.missingSeconds);
    const char* url = nullptr;
    if (g_variant_lookup(dictionary, "File", "&s", &url)) status.file = fileOf(url);
    return status;
}

}  // namespace tessivox::gio
