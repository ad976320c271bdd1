#pragma once

#include <optional>
#include <string>
#include <vector>

#include "app/CommandLine.h"
#include "app/Console.h"
#include "app/ExitCode.h"
#include "detection/AppExclusions.h"
#include "detection/ExclusionRow.h"
#include "detection/ports/Applications.h"

namespace tessivox::app {

/// The lines for people: the state, whose entry it is, identifier and name.
std::string exclusionsText(const std::vector<detection::ExclusionRow>& rows);
/// The array that `--help` describes, indented, with a newline at the end.
std::string exclusionsJSON(const std::vector<detection::ExclusionRow>& rows);

/// `tessivox exclude`: which applications make no call, as the settings' list shows and changes it. An application is
/// meant by its identifier, its desktop file, or its name if only one is called so. Main thread.
class ExcludeCommand {
public:
    struct Parts {
        detection::AppExclusions& exclusions;
        const detection::Applications& applications;
        Console& console;
    };
    explicit ExcludeCommand(const Parts& parts) : parts_(parts) {}

    ExitCode run(const ExcludeOptions& options);

private:
    Parts parts_;

    ExitCode list(bool asJSON) const;
    ExitCode forEach(const std::vector<std::string>& apps, bool (ExcludeCommand::*change)(const std::string&));
    bool add(const std::string& app);
    bool remove(const std::string& app);
    std::optional<std::string> excludedID(const std::string& app) const;
};

}  // namespace tessivox::app
