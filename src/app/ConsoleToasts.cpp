#include "app/ConsoleToasts.h"

#include <algorithm>
#include <string>

#include "base/Text.h"

namespace tessivox::app {
namespace {

using base::filled;
using base::localized;
using detection::ToastButtonKind;

class Line final : public detection::Toast {
public:
    /// Until its time is over: a second one would be the same question.
    bool isVisible() const override { return true; }
    void setSubtitle(const std::string&) override {}
};

std::string hint(const detection::ToastContents& contents) {
    const auto has = [&](ToastButtonKind kind) {
        return std::ranges::find(contents.buttons, kind, &detection::ToastButton::kind) != contents.buttons.end();
    };
    if (has(ToastButtonKind::primaryBlue)) return localized("To record it, run: tessivox start");
    if (has(ToastButtonKind::primaryRed)) return localized("To stop and save it, run: tessivox stop");
    return {};
}

}  // namespace

std::unique_ptr<detection::Toast> ConsoleToasts::show(detection::ToastContents contents) {
    console_.message(filled("{0} ({1}) {2}", {contents.title, printable(contents.subtitle), hint(contents)}));
    return std::make_unique<Line>();
}

}  // namespace tessivox::app
