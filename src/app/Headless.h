#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "app/Console.h"
#include "base/Error.h"
#include "base/Text.h"
#include "core/ports/Alerts.h"
#include "core/ports/FolderChooser.h"
#include "core/ports/LoginItem.h"
#include "services/telemetry/ports/CrashSink.h"
#include "transcription/ports/NetworkPath.h"

namespace tessivox::app {

/// Where nobody can be asked, every choice is cancelled.
class HeadlessFolderChooser final : public core::FolderChooser {
public:
    base::Task<std::optional<std::filesystem::path>> chooseFolder(std::string, std::string) override {
        co_return std::nullopt;
    }
};

/// Where nobody can be asked, a question is told and answered by what loses nothing.
class HeadlessAlerts final : public core::Alerts {
public:
    explicit HeadlessAlerts(Console& console) : console_(console) {}

    base::Task<std::size_t> show(core::Alert alert) override {
        console_.message(alert.message);
        if (!alert.text.empty()) console_.message(alert.text);
        co_return alert.safeChoice;
    }

private:
    Console& console_;
};

/// A command takes the network as it finds it: who starts it again is the one who knows that it is back.
class HeadlessNetworkPath final : public transcription::NetworkPath {
public:
    bool isAvailable() const override { return true; }
    base::Subscription onChange(std::function<void(bool isAvailable)>) override { return {}; }
};

/// A command that fails says so itself.
class HeadlessCrashSink final : public telemetry::CrashSink {
public:
    void start(const telemetry::CrashOptions&) override {}
    void setScope(const telemetry::CrashScope&) override {}
    void addBreadcrumb(const telemetry::Breadcrumb&) override {}
};

/// A command never becomes part of the desktop's session.
class HeadlessLoginItem final : public core::LoginItem {
public:
    void registerItem() override { refuse(); }
    void unregisterItem() override { refuse(); }

private:
    [[noreturn]] static void refuse() {
        throw base::Error("app", 1, base::localized("A command cannot change what starts with the desktop."));
    }
};

}  // namespace tessivox::app
