#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>

#include "app/Console.h"
#include "base/Error.h"
#include "base/Text.h"
#include "core/ports/Alerts.h"
#include "core/ports/FolderChooser.h"
#include "core/ports/LoginItem.h"

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
