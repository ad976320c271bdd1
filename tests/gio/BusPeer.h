#pragma once

#include <gio/gio.h>
#include <gio/gunixfdlist.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace tessivox::gio {

/// Another program on a bus, driven by the test between two turns of its main loop.
class BusPeer {
public:
    using MethodHandler =
        std::function<void(const std::string& method, GVariant* parameters, GDBusMethodInvocation* invocation)>;

    explicit BusPeer(const std::string& address);
    BusPeer(const BusPeer&) = delete;
    BusPeer& operator=(const BusPeer&) = delete;
    ~BusPeer() { leave(); }

    /// Does what is due, without waiting.
    void turn();
    /// Goes away, after what it has said.
    void leave();

    /// Whether it has the name, which somebody who has just left may take a moment to lose.
    bool own(const std::string& name);
    void disown(const std::string& name);
    /// Answers the methods of the interfaces in the introspection data.
    void serve(const std::string& path, const std::string& xml, MethodHandler handler);
    void emit(const std::string& path, const std::string& interface, const std::string& signal, GVariant* parameters);

    /// A call on its way: what came back, printed by GVariant, or the error's name and message.
    struct Call {
        bool isDone = false;
        std::string value;
        std::string error;
        std::string message;
    };
    std::shared_ptr<Call> call(const std::string& destination, const std::string& path, const std::string& interface,
                               const std::string& method, GVariant* parameters);
    /// Parameters of each signal of the interface, printed, as they come.
    std::shared_ptr<std::vector<std::string>> signalsOf(const std::string& interface, const std::string& signal);

private:
    GMainContext* context_ = g_main_context_new();
    GDBusConnection* connection_ = nullptr;
    GDBusNodeInfo* node_ = nullptr;
    std::vector<unsigned> subscriptions_;
    MethodHandler handler_;

    GVariant* ask(const char* method, GVariant* parameters);
};

/// A value as text: "(true,)".
std::string printed(GVariant* value);

}  // namespace tessivox::gio
