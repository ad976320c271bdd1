#include "platform/linux/desktop/ProcessIdentities.h"

#include <algorithm>
#include <vector>

#include "platform/linux/desktop/ControlGroup.h"
#include "platform/linux/desktop/KnownApplications.h"
#include "platform/linux/desktop/ProgramName.h"
#include "platform/linux/desktop/UntrustedText.h"

namespace tessivox::desktop {
namespace {

constexpr int kMostAncestors = 16;
constexpr std::size_t kMostCached = 256;

/// The identifier of the tables for the first of the names that has one.
std::string identifierFor(const std::vector<std::string>& names) {
    for (const auto& name : names) {
        if (const auto* known = knownApplication(name)) return std::string(known->identifier);
    }
    return names.front();
}

}  // namespace

std::optional<Identity> ProcessIdentities::identify(const ProcessClues& clues) {
    entries_.refresh();
    const auto pid = hostPID(clues);
    auto identity = identityOf(clues, pid);
    remember(pid, identity);
    return identity;
}

std::optional<Identity> ProcessIdentities::identify(std::int32_t pid) {
    const auto revision = entries_.refresh();
    const auto cached = cache_.find(pid);
    const bool isFresh = cached != cache_.end() && cached->second.revision == revision &&
                         cached->second.startTime == processes_.startTime(pid);
    if (isFresh) return cached->second.identity;
    ProcessClues clues;
    clues.securityPID = pid;
    return identify(clues);
}

void ProcessIdentities::remember(std::int32_t pid, const std::optional<Identity>& identity) {
    const auto startTime = processes_.startTime(pid);
    if (pid <= 0 || startTime == 0) return;
    if (cache_.size() >= kMostCached) cache_.clear();
    cache_[pid] = {startTime, entries_.refresh(), identity};
}

bool ProcessIdentities::runs(std::int32_t pid, const std::string& binary) const {
    const auto path = processes_.executable(pid);
    return !path.empty() && (binary.empty() || baseName(path) == binary);
}

/// The number that this system knows the process by.
std::int32_t ProcessIdentities::hostPID(const ProcessClues& clues) const {
    if (clues.securityPID > 0 && processes_.startTime(clues.securityPID) > 0) return clues.securityPID;
    if (clues.pid <= 0) return 0;
    if (runs(clues.pid, clues.binary)) return clues.pid;
    auto others = processes_.knownInSandboxAs(clues.pid);
    std::erase_if(others, [&](std::int32_t pid) { return clues.binary.empty() || !runs(pid, clues.binary); });
    if (others.size() == 1) return others.front();
    // Where several sandboxes fit nobody can tell; where none does the program merely calls itself something else.
    return others.empty() && runs(clues.pid, {}) ? clues.pid : 0;
}

/// From a helper up to the process of the application itself.
std::int32_t ProcessIdentities::application(std::int32_t pid) const {
    auto path = processes_.executable(pid);
    for (int step = 0; step < kMostAncestors && !path.empty(); ++step) {
        const auto parent = processes_.parent(pid);
        if (parent <= 1) break;
        const auto above = processes_.executable(parent);
        if (above.empty() || (above != path && !isHelper(baseName(path)))) break;
        // An interpreter's parent of the same kind runs a script of its own, unless this is a helper without one.
        const auto own = programOf(pid);
        if (isInterpreter(baseName(path)) && !own.empty() && programOf(parent) != own) break;
        pid = parent;
        path = above;
    }
    return pid;
}

std::string ProcessIdentities::programOf(std::int32_t pid) const {
    const auto path = processes_.executable(pid);
    if (!isInterpreter(baseName(path))) return safeIdentifier(baseName(path));
    auto command = processes_.arguments(pid);
    if (!command.empty()) command.front() = path;
    return safeIdentifier(programName(command));
}

std::optional<Identity> ProcessIdentities::identityOf(const ProcessClues& clues, std::int32_t pid) const {
    const auto binary = safeIdentifier(clues.binary.empty() ? baseName(processes_.executable(pid)) : clues.binary);
    auto program = pid > 0 ? programOf(application(pid)) : std::string();
    if (program.empty() && !isInterpreter(binary)) program = binary;
    const auto found = search(clues, pid, program);
    const auto unknown = "unknown." + std::to_string(pid > 0 ? pid : clues.pid);
    const auto name = found ? found->name : binary.empty() ? unknown : binary;

    std::vector<std::string> names{name};
    if (found && found->entry) names.insert(names.end(), {found->entry->id, found->entry->program});
    if (!found || !found->isSandboxed) names.insert(names.end(), {program, binary});
    std::erase(names, std::string());
    if (std::ranges::any_of(names, [](const std::string& each) { return isNeverInCall(each); })) return std::nullopt;

    Identity identity;
    identity.identifier = identifierFor(names);
    identity.pid = pid;
    identity.name = name;
    if (found && found->entry) identity.entry = found->entry->path;
    identity.isApplication = found && (found->isSandboxed || found->entry);
    return identity;
}

ProcessIdentities::Search ProcessIdentities::search(const ProcessClues& clues, std::int32_t pid,
                                                    const std::string& program) const {
    if (!clues.portalID.empty()) return sandboxed(safeIdentifier(clues.portalID));
    if (pid > 0) {
        if (const auto flatpak = processes_.flatpak(pid); !flatpak.empty()) return sandboxed(safeIdentifier(flatpak));
        if (auto found = bySnap(pid)) return found;
        if (auto found = byGroup(pid, program)) return found;
    }
    if (!clues.applicationID.empty()) {
        const auto id = safeIdentifier(clues.applicationID);
        return Found{id, entries_.byID(id), false};
    }
    return byProgram(program);
}

ProcessIdentities::Search ProcessIdentities::sandboxed(const std::string& name) const {
    const auto* entry = entries_.bySandbox(name);
    return Found{name, entry ? entry : entries_.byID(name), true};
}

/// What runs from a snap's own files.
ProcessIdentities::Search ProcessIdentities::bySnap(std::int32_t pid) const {
    constexpr std::string_view folder = "/snap/";
    const auto path = processes_.executable(pid);
    if (!path.starts_with(folder)) return std::nullopt;
    const auto name = path.substr(folder.size(), path.find('/', folder.size()) - folder.size());
    if (name.empty() || name == "bin" || name == "snapd") return std::nullopt;
    return sandboxed(safeIdentifier(name));
}

ProcessIdentities::Search ProcessIdentities::byGroup(std::int32_t pid, const std::string& program) const {
    const auto owner = ownerOfGroups(processes_.controlGroups(pid));
    if (!owner) return std::nullopt;
    const auto id = safeIdentifier(owner->id);
    if (owner->kind != GroupOwner::Kind::desktopEntry) return sandboxed(id);
    // Whatever is started in a terminal's window shares its group.
    const auto* entry = entries_.byID(id);
    if (!entry || entry->isTerminal || isSoundCommand(program)) return std::nullopt;
    // What another application has started, as a browser does with the link to a meeting, shares that one's group. Only
    // a page that is an application by itself has no program of its own.
    const auto* known = knownApplication(program);
    const auto isIts = [known](const std::string& name) { return knownApplication(name) == known; };
    if (known && !entry->program.empty() && !isIts(entry->id) && !isIts(entry->name()) && !isIts(entry->program))
        return std::nullopt;
    return Found{entry->name(), entry, false};
}

ProcessIdentities::Search ProcessIdentities::byProgram(const std::string& program) const {
    if (program.empty() || isInterpreter(program) || isSoundCommand(program)) return std::nullopt;
    const auto* entry = entries_.byProgram(program);
    if (!entry) entry = entries_.byID(program);
    if (const auto* known = entry ? nullptr : knownApplication(program)) {
        for (const auto& name : namesOf(*known)) entry = entry ? entry : entries_.byAnyName(name);
    }
    if (!entry) return std::nullopt;
    return Found{entry->name(), entry, false};
}

std::string ProcessIdentities::identifierOf(const DesktopEntry& entry) {
    std::vector<std::string> names{entry.name(), entry.id};
    if (!entry.program.empty()) names.push_back(entry.program);
    return identifierFor(names);
}

const DesktopEntry* ProcessIdentities::entryFor(const std::string& identifier) {
    entries_.refresh();
    for (const auto& name : namesFor(identifier)) {
        if (const auto* entry = entries_.byAnyName(name)) return entry;
    }
    return entries_.byAnyName(identifier);
}

}  // namespace tessivox::desktop
