#include "backend/Options.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>

#include "backend/OptionTable.h"
#include "base/Text.h"

#ifndef TESSIVOX_VERSION
#error "The build defines TESSIVOX_VERSION."
#endif

namespace tessivox::backend {
namespace {

using base::filled;
using nlohmann::json;

/// Leaves parseOptions() as its answer.
struct Refusal {
    std::string sentence;
};

[[noreturn]] void refuse(std::string text, std::initializer_list<std::string_view> values) {
    throw Refusal{filled(std::move(text), values)};
}

const OptionEntry* find(std::string_view name) {
    const auto table = optionTable();
    const auto entry = std::find_if(table.begin(), table.end(), [&](const auto& e) { return e.name == name; });
    return entry == table.end() ? nullptr : &*entry;
}

void take(ServerOptions& options, const OptionEntry& entry, const std::string& spelling, const std::string& value) {
    if (!entry.take(options, value)) refuse("{0} needs {1}, not \"{2}\".", {spelling, entry.expected, value});
}

/// The configuration file's values.
void takeSetting(ServerOptions& options, const std::string& name, const json& value) {
    if (name == "command") {
        if (!value.is_array() || value.empty() ||
            !std::all_of(value.begin(), value.end(), [](const json& e) { return e.is_string(); })) {
            refuse("\"command\" in backend.json needs a list of texts: the program and its arguments.", {});
        }
        options.engine.command = value.get<std::vector<std::string>>();
        return;
    }
    const auto* entry = find(name);
    if (!entry || name == "inherited") {
        refuse("There is no setting \"{0}\" in backend.json; tessivox-backend --help lists them.", {name});
    }
    const auto spelling = filled("\"{0}\" in backend.json", {name});
    if (entry->value.empty()) {
        if (!value.is_boolean()) refuse("{0} needs true or false.", {spelling});
        if (value.get<bool>()) entry->take(options, "");
    } else {
        take(options, *entry, spelling, value.is_string() ? value.get<std::string>() : value.dump());
    }
}

void takeConfiguration(ServerOptions& options, const std::string& text) {
    const auto document = json::parse(text, nullptr, false);
    if (!document.is_object()) refuse("backend.json is not a JSON object; mend it or remove it.", {});
    for (const auto& [name, value] : document.items()) takeSetting(options, name, value);
}

/// The names of the options that were given.
std::set<std::string, std::less<>> takeArguments(ServerOptions& options, const std::vector<std::string>& arguments) {
    std::set<std::string, std::less<>> given;
    for (auto argument = arguments.begin(); argument != arguments.end(); ++argument) {
        const std::string name = argument->starts_with("--") ? argument->substr(2) : "";
        given.insert(name);
        if (name == "command") {
            options.engine.command.assign(argument + 1, arguments.end());
            if (options.engine.command.empty()) refuse("--command needs a program.", {});
            break;
        }
        const auto* entry = find(name);
        if (!entry) refuse("There is no option \"{0}\"; tessivox-backend --help lists them.", {*argument});
        if (entry->value.empty()) {
            entry->take(options, "");
        } else if (argument + 1 == arguments.end()) {
            refuse("{0} needs {1}.", {*argument, entry->expected});
        } else {
            const auto& spelling = *argument;
            take(options, *entry, spelling, *++argument);
        }
    }
    return given;
}

bool isLoopback(const std::string& address) {
    return address == "127.0.0.1" || address == "::1" || address == "localhost";
}

void checkListening(const ListenOptions& listen) {
    if (listen.certificate.empty() != listen.key.empty()) refuse("--tls-cert and --tls-key need each other.", {});
    if (isLoopback(listen.address)) return;
    if (listen.certificate.empty() || listen.secretFile.empty() || listen.host.empty()) {
        refuse("To serve other machines at {0}, give --tls-cert, --tls-key, --secret-file and --host as well.",
               {listen.address});
    }
}

void checkEngine(const ServerOptions& options) {
    const auto& engine = options.engine;
    if (engine.engine == "command" && engine.command.empty()) {
        refuse("The engine \"command\" needs --command with a program and its arguments.", {});
    }
    if (engine.engine != "command" && !engine.command.empty()) {
        refuse("--command is for --engine command, not for \"{0}\".", {engine.engine});
    }
    if (engine.engine == "openai" && engine.openaiUrl.empty()) {
        refuse("The engine \"openai\" needs --openai-url.", {});
    }
    if (engine.chatUrl.empty() != engine.chatModel.empty()) refuse("--chat-url and --chat-model need each other.", {});
    if (engine.engine == "fake" && !options.isTesting) refuse("The engine \"fake\" needs --testing.", {});
}

/// Options that stand in the table behind "testing".
void checkTesting(const ServerOptions& options, const std::set<std::string, std::less<>>& given) {
    if (options.isTesting) return;
    const auto table = optionTable();
    auto entry = std::find_if(table.begin(), table.end(), [](const auto& e) { return e.name == "testing"; });
    for (; entry != table.end(); ++entry) {
        if (given.contains(entry->name)) refuse("--{0} needs --testing.", {entry->name});
    }
    if (!options.faults.empty()) refuse("\"fault\" in backend.json needs \"testing\".", {});
}

ServerOptions parse(const std::vector<std::string>& arguments, const std::optional<std::string>& configuration) {
    ServerOptions options;
    if (configuration) takeConfiguration(options, *configuration);
    const auto given = takeArguments(options, arguments);
    // What the file says of addresses is for servers that are started by hand.
    if (!options.isInherited) {
        checkListening(options.listen);
    } else {
        for (const auto* name : {"listen", "host", "tls-cert", "tls-key", "secret-file"}) {
            if (given.contains(name)) refuse("--{0} makes no sense with --inherited.", {name});
        }
        options.listen = {};
    }
    if (given.contains("engine") && !given.contains("command") && options.engine.engine != "command") {
        options.engine.command.clear();  // the file's, for the engine that the file names
    }
    checkEngine(options);
    checkTesting(options, given);
    return options;
}

}  // namespace

Options parseOptions(const std::vector<std::string>& arguments, const std::optional<std::string>& configuration) {
    const auto isAsked = [&](const char* name) {
        const auto end = std::find(arguments.begin(), arguments.end(), "--command");
        return std::find(arguments.begin(), end, name) != end;
    };
    if (isAsked("--help")) return Information{helpText()};
    if (isAsked("--version")) return Information{"tessivox-backend " TESSIVOX_VERSION "\n"};
    if (isAsked("--worker")) {
        if (arguments.size() == 1) return WorkerRole();
        return UsageError{"--worker is for the server itself and stands alone."};
    }
    try {
        return parse(arguments, configuration);
    } catch (const Refusal& refusal) {
        return UsageError{refusal.sentence};
    }
}

}  // namespace tessivox::backend
