#include "platform/linux/gio/NotificationToasts.h"

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "BusPeer.h"
#include "platform/linux/posix/EventLoop.h"
#include "support/PrivateBus.h"
#include "support/TestFolder.h"
#include "support/TurnLoop.h"

namespace tessivox::gio {
namespace {

using namespace std::chrono_literals;
using detection::Toast;
using detection::ToastContents;
using detection::ToastPresenter;
using Texts = std::vector<std::string>;

constexpr const char* kName = "org.freedesktop.Notifications";
constexpr const char* kPath = "/org/freedesktop/Notifications";
constexpr const char* kXML = R"(<node><interface name="org.freedesktop.Notifications">
  <method name="GetCapabilities"><arg type="as" direction="out"/></method>
  <method name="Notify">
    <arg type="s" direction="in"/><arg type="u" direction="in"/><arg type="s" direction="in"/>
    <arg type="s" direction="in"/><arg type="s" direction="in"/><arg type="as" direction="in"/>
    <arg type="a{sv}" direction="in"/><arg type="i" direction="in"/><arg type="u" direction="out"/>
  </method>
  <method name="CloseNotification"><arg type="u" direction="in"/></method>
</interface></node>)";

/// A notification server: keeps what it shows and does what the test wants.
class StandInServer {
public:
    struct Shown {
        std::string icon, title, body;
        Texts actions;
        std::string hints;
        int limit = 0;
    };

    explicit StandInServer(const std::string& address, Texts offered = {"body", "actions"})
        : peer(address), capabilities(std::move(offered)) {
        peer.serve(kPath, kXML, [this](const std::string& method, GVariant* parameters, GDBusMethodInvocation* call) {
            if (method == "GetCapabilities") return tellCapabilities(call);
            if (method == "CloseNotification") return close(parameters, call);
            notify(parameters);
            waiting.emplace_back(lastID, call);
            if (answersAtOnce) answer();
        });
        EXPECT_TRUE(peer.own(kName));
    }
    ~StandInServer() { peer.leave(); }

    BusPeer peer;
    Texts capabilities;
    bool answersAtOnce = true;
    std::map<unsigned, Shown> shown;
    unsigned lastID = 0;
    int notifications = 0;
    std::vector<std::pair<unsigned, GDBusMethodInvocation*>> waiting;

    void answer() {
        for (const auto& [id, call] : std::exchange(waiting, {}))
            g_dbus_method_invocation_return_value(call, g_variant_new("(u)", id));
    }
    void press(unsigned id, const std::string& action) {
        peer.emit(kPath, kName, "ActionInvoked", g_variant_new("(us)", id, action.c_str()));
    }
    void closeByUser(unsigned id) {
        shown.erase(id);
        peer.emit(kPath, kName, "NotificationClosed", g_variant_new("(uu)", id, 2U));
    }

private:
    void tellCapabilities(GDBusMethodInvocation* call) const {
        GVariantBuilder builder;
        g_variant_builder_init(&builder, G_VARIANT_TYPE_STRING_ARRAY);
        for (const auto& text : capabilities) g_variant_builder_add(&builder, "s", text.c_str());
        g_dbus_method_invocation_return_value(call, g_variant_new("(@as)", g_variant_builder_end(&builder)));
    }
    void notify(GVariant* parameters) {
        const char *name, *icon, *title, *body;
        unsigned replaced = 0;
        GVariant* hints = nullptr;
        GVariantIter* actions = nullptr;
        Shown entry;
        g_variant_get(parameters, "(&su&s&s&sas@a{sv}i)", &name, &replaced, &icon, &title, &body, &actions, &hints,
                      &entry.limit);
        entry.icon = icon;
        entry.title = title;
        entry.body = body;
        for (const char* text = nullptr; g_variant_iter_next(actions, "&s", &text);) entry.actions.emplace_back(text);
        entry.hints = printed(hints);
        g_variant_iter_free(actions);
        g_variant_unref(hints);
        // As servers do: what is not there any more is not replaced.
        lastID = shown.contains(replaced) ? replaced : lastID + 1;
        shown[lastID] = entry;
        ++notifications;
    }
    void close(GVariant* parameters, GDBusMethodInvocation* call) {
        unsigned id = 0;
        g_variant_get(parameters, "(u)", &id);
        if (shown.erase(id) > 0) peer.emit(kPath, kName, "NotificationClosed", g_variant_new("(uu)", id, 3U));
        g_dbus_method_invocation_return_value(call, nullptr);
    }
};

/// Where toasts go that no server shows.
class Lines final : public ToastPresenter {
public:
    Texts shown;
    int standing = 0;

    std::unique_ptr<Toast> show(ToastContents contents) override {
        shown.push_back(contents.title + ": " + contents.subtitle);
        return std::make_unique<Line>(*this);
    }

private:
    class Line final : public Toast {
    public:
        explicit Line(Lines& lines) : lines_(lines) { ++lines_.standing; }
        ~Line() override { --lines_.standing; }
        bool isVisible() const override { return true; }
        void setSubtitle(const std::string& subtitle) override { lines_.shown.push_back(subtitle); }

    private:
        Lines& lines_;
    };
};

class NotificationToastsTest : public ::testing::Test {
protected:
    testing::TestFolder folder;
    testing::PrivateBus session{folder.path()};
    posix::EventLoop loop;
    std::optional<StandInServer> server;
    Lines lines;
    std::optional<BusThread> bus{std::in_place, loop, BusAddresses{session.address(), ""}};
    std::optional<NotificationToasts> toasts;
    std::unique_ptr<Toast> toast;
    Texts answers;

    void begin(NotificationToasts::Timing timing = {10s, 10s}) { toasts.emplace(*bus, lines, timing); }
    void beginWithServer(Texts capabilities = {"body", "actions"}) {
        server.emplace(session.address(), std::move(capabilities));
        begin();
        ASSERT_TRUE(becomesTrue([&] { return toasts->isAvailable(); }));
    }
    bool becomesTrue(const std::function<bool()>& condition) {
        return testing::runUntil(loop, [&] {
            if (server) server->peer.turn();
            return condition();
        });
    }
    ToastContents question() {
        ToastContents contents;
        contents.systemImage = "phone.fill";
        contents.title = "Record this call?";
        contents.subtitle = "Microphone \u00b7 A & <B>";
        contents.countdown = 15s;
        contents.buttons.push_back({"Record", {}, {}, [this] {
                                        answers.emplace_back("record");
                                        toast.reset();
                                    }});
        contents.buttons.push_back({"Dismiss", {}, {}, [this] { answers.emplace_back("dismiss"); }});
        return contents;
    }
    /// The notification of a new toast.
    unsigned showOne() {
        toast = toasts->show(question());
        const int before = server->notifications;
        EXPECT_TRUE(becomesTrue([&] { return server->notifications > before; }));
        return server->lastID;
    }
    bool isGone() {
        return becomesTrue([&] { return server->shown.empty(); });
    }
};

TEST_F(NotificationToastsTest, ShowsTheTextsAndEndsWithTheFirstAnswer) {
    beginWithServer();
    const auto id = showOne();
    const auto& shown = server->shown.at(id);
    EXPECT_EQ(shown.icon, "call-start");
    EXPECT_EQ(shown.title, "Record this call?");
    EXPECT_EQ(shown.body, "Microphone \u00b7 A & <B>");
    EXPECT_EQ(shown.actions, (Texts{"0", "Record", "1", "Dismiss"}));
    EXPECT_EQ(shown.limit, 20000);
    EXPECT_EQ(shown.hints,
              "{'urgency': <byte 0x02>, 'resident': <true>, 'transient': <true>, 'suppress-sound': <true>, "
              "'desktop-entry': <'com.tessivox.Tessivox'>}");
    for (const auto* action : {"default", "2", "-1", "0x"}) server->press(id, action);
    server->press(id + 1, "0");
    server->press(id, "0");
    server->press(id, "1");
    EXPECT_TRUE(isGone());
    EXPECT_EQ(answers, Texts{"record"});
    EXPECT_TRUE(lines.shown.empty());
}

TEST_F(NotificationToastsTest, TakesNoAnswerFromAnybodyElse) {
    beginWithServer();
    const auto id = showOne();
    BusPeer stranger(session.address());
    stranger.emit(kPath, kName, "ActionInvoked", g_variant_new("(us)", id, "0"));
    const auto marker =
        stranger.call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetId", nullptr);
    ASSERT_TRUE(becomesTrue([&] {
        stranger.turn();
        return marker->isDone;
    }));
    server->press(id, "1");
    ASSERT_TRUE(becomesTrue([&] { return !answers.empty(); }));
    EXPECT_EQ(answers, Texts{"dismiss"});
}

TEST_F(NotificationToastsTest, EscapesTheBodyOnlyForAServerThatReadsMarkup) {
    beginWithServer({"body", "actions", "body-markup"});
    const auto id = showOne();
    EXPECT_EQ(server->shown.at(id).body, "Microphone \u00b7 A &amp; &lt;B&gt;");
}

TEST_F(NotificationToastsTest, ReplacesTheSubtitleAtMostOnceASecond) {
    beginWithServer();
    const auto id = showOne();
    const auto begin = loop.now();
    for (int second = 0; second < 50; ++second) toast->setSubtitle("Recording " + std::to_string(second));
    ASSERT_TRUE(becomesTrue([&] { return server->notifications == 2; }));
    EXPECT_GE(loop.now() - begin, 900ms);
    EXPECT_EQ(server->shown.size(), 1U);
    EXPECT_EQ(server->shown.at(id).body, "Recording 49");
    toast.reset();
    EXPECT_TRUE(isGone());
}

TEST_F(NotificationToastsTest, IsNeitherAnsweredNorShownAgainWhenTheServerClosesIt) {
    beginWithServer();
    const auto id = showOne();
    server->closeByUser(id);
    toast->setSubtitle("Recording 1");
    auto other = toasts->show(question());
    ASSERT_TRUE(becomesTrue([&] { return server->notifications == 2; }));
    other->setSubtitle("Recording 2");
    ASSERT_TRUE(becomesTrue([&] { return server->notifications == 3; }));
    EXPECT_EQ(server->shown.begin()->second.body, "Recording 2");
    EXPECT_EQ(server->shown.size(), 1U);
    EXPECT_TRUE(toast->isVisible());
    EXPECT_TRUE(answers.empty() && lines.shown.empty());
}

TEST_F(NotificationToastsTest, ClosesWhatIsShownAfterTheToastHasGone) {
    beginWithServer();
    server->answersAtOnce = false;
    showOne();
    toast.reset();
    EXPECT_TRUE(lines.shown.empty());
    // The bus thread has heard of it once it shows the next one.
    const auto next = toasts->show(question());
    ASSERT_TRUE(becomesTrue([&] { return server->notifications == 2; }));
    server->answer();
    EXPECT_TRUE(becomesTrue([&] { return server->shown.size() == 1; }));
    EXPECT_TRUE(server->shown.contains(2));
}

TEST_F(NotificationToastsTest, ShowsItOtherwiseAsLongAsTheServerDoesNotAnswer) {
    server.emplace(session.address());
    begin({10s, 50ms});
    ASSERT_TRUE(becomesTrue([&] { return toasts->isAvailable(); }));
    server->answersAtOnce = false;
    const auto id = showOne();
    ASSERT_TRUE(becomesTrue([&] { return lines.standing == 1; }));
    server->answer();
    ASSERT_TRUE(becomesTrue([&] { return lines.standing == 0; }));
    server->press(id, "0");
    EXPECT_TRUE(isGone());
    EXPECT_EQ(answers, Texts{"record"});
}

TEST_F(NotificationToastsTest, ShowsItOtherwiseWithoutAServerThatOffersActions) {
    begin();
    EXPECT_FALSE(toasts->isAvailable());
    const auto line = toasts->show(question());
    EXPECT_EQ(lines.shown.size(), 1U);
    std::vector<bool> told;
    const auto subscription = toasts->onAvailability([&](bool isAvailable) { told.push_back(isAvailable); });
    server.emplace(session.address(), Texts{"body"});
    server.emplace(session.address(), Texts{"body", "actions"});
    ASSERT_TRUE(becomesTrue([&] { return toasts->isAvailable(); }));
    server.emplace(session.address(), Texts{"body"});
    ASSERT_TRUE(becomesTrue([&] { return !toasts->isAvailable(); }));
    EXPECT_EQ(told, (std::vector{false, true, false}));
    EXPECT_EQ(lines.standing, 1);
}

TEST_F(NotificationToastsTest, FollowsAServerThatGoesAndComesBackOnce) {
    beginWithServer();
    showOne();
    server.reset();
    ASSERT_TRUE(becomesTrue([&] { return lines.standing == 1; }));
    EXPECT_FALSE(toasts->isAvailable());
    EXPECT_TRUE(toast->isVisible());
    server.emplace(session.address());
    ASSERT_TRUE(becomesTrue([&] { return server->shown.size() == 1 && lines.standing == 0; }));
    server.reset();  // as if it could not bear the notification
    ASSERT_TRUE(becomesTrue([&] { return lines.standing == 1; }));
    server.emplace(session.address());
    ASSERT_TRUE(becomesTrue([&] { return toasts->isAvailable(); }));
    const auto next = toasts->show(question());
    ASSERT_TRUE(becomesTrue([&] { return server->notifications > 0; }));
    EXPECT_EQ(server->notifications, 1);
    EXPECT_EQ(lines.standing, 1);
    toast.reset();
    EXPECT_EQ(lines.standing, 0);
}

TEST_F(NotificationToastsTest, StartsAServerOnlyIfNoneComesByItselfAndCountsOnOneThatCanBeStarted) {
    const auto mark = folder.path() / "started";
    session.end();
    session.addService(kName, folder.script("server", "#!/bin/sh\n: > " + mark.string() + "\nexit 1\n"));
    session.start();
    bus.emplace(loop, BusAddresses{session.address(), ""});
    begin({50ms, 10s});
    ASSERT_TRUE(becomesTrue([&] { return std::filesystem::exists(mark); }));
    EXPECT_FALSE(toasts->isAvailable());
    std::filesystem::remove(mark);

    server.emplace(session.address());
    ASSERT_TRUE(becomesTrue([&] { return toasts->isAvailable(); }));
    bool hasGone = false;
    BusPeer other(session.address());
    const auto changes = other.signalsOf("org.freedesktop.DBus", "NameOwnerChanged");
    server.reset();
    ASSERT_TRUE(becomesTrue([&] {
        other.turn();
        for (const auto& change : *changes) hasGone = hasGone || change.starts_with("('org.freedesktop.Notifications'");
        return hasGone;
    }));
    EXPECT_TRUE(toasts->isAvailable());
    toast = toasts->show(question());
    EXPECT_TRUE(becomesTrue([&] { return std::filesystem::exists(mark) && lines.standing == 1; }));
}

}  // namespace
}  // namespace tessivox::gio
