#include <algorithm>
#include <chrono>
#include <cstdint>
#include <iterator>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "DetectionTest.h"

namespace tessivox::detection {
namespace {

/// An application of the test's world, with what the rules say of it in plain words.
struct App {
    std::string id;
    int rank;                           ///< 0 is named first
    std::string builtIn;                ///< the built-in entry that covers it
    std::vector<std::string> userKeys;  ///< entries of the user's list that would cover it
    bool isNever = false;               ///< ourselves or a part of the system
    std::string host = {};              ///< the application it belongs to, if that is another
};
const std::vector<App> kApps{
    {"us.zoom.xos", 0, "", {"us.zoom"}},
    {"com.hnc.Discord", 0, "", {}},
    {"ru.yandex.TELEMOST.desktop", 0, "", {}},
    {"com.apple.WebKitExtra", 1, "", {}},
    {"com.google.Chrome.helper", 1, "", {"com.google.Chrome"}},
    {"org.mozilla.firefox", 1, "", {}},
    {"org.example.Meet", 2, "", {"org.example.Meet"}},
    {"org.example.Meet.helper", 2, "", {"org.example.Meet"}},
    {"org.example.Meeting", 2, "", {}},
    {"unknown.4711", 2, "", {}},
    {"net.worker", 2, "", {"org.example.Meet"}, false, "org.example.Meet"},
    {"net.plugin", 2, "com.obsproject.obs-studio", {"com.obsproject.obs-studio"}, false, "com.obsproject.obs-studio"},
    {"com.obsproject.obs-studio", 2, "com.obsproject.obs-studio", {"com.obsproject.obs-studio"}},
    {"md.obsidian.helper", 2, "md.obsidian", {"md.obsidian"}},
    {"md.obsidianlike", 2, "", {}},
    {"com.tessivox.Tessivox", 2, "", {}, true},
    {"com.apple.replayd.part", 2, "", {}, true},
};
const std::vector<std::string> kUserKeys{"us.zoom", "com.google.Chrome", "org.example.Meet",
                                         "com.obsproject.obs-studio", "md.obsidian"};
const std::vector<std::string> kBuiltIns{"com.obsproject.obs-studio", "md.obsidian"};

/// The rules, as a person with a stopwatch and a list would follow them. Milliseconds.
class Model {
public:
    struct Scene {
        std::vector<const App*> apps;  ///< at the microphone, each as often as it has processes there
        std::optional<bool> isRunning;
        unsigned device = 1;
    };
    Scene shown;  ///< what can be seen; the rest of the world tells when it changed
    std::set<std::string> userKeys;
    std::set<std::string> switchedOff;

    std::vector<std::string> events;
    std::vector<std::string> names;
    bool isCall = false;

    void look() {
        const bool runs = shown.device != 0 && shown.isRunning.value_or(!shown.apps.empty());
        std::map<std::pair<int, std::string>, int> others;
        for (const auto* app : shown.apps) {
            if (runs && isOther(*app)) ++others[{app->rank, app->id}];
        }
        if (!others.empty() && !isCall) {
            names.clear();
            for (const auto& [name, count] : others) names.push_back(name.second);
            if (names.size() > 5) names.resize(5);
        }
        doubtSince_ = others.empty() == isCall ? std::optional(now_) : std::nullopt;
    }
    void advance(long span) {
        const long until = now_ + span;
        while (true) {
            const long turn = doubtSince_ ? *doubtSince_ + 1000 : until + 1;
            const long poll = isCall ? nextPoll_ : until + 1;
            now_ = std::min({turn, poll, until});
            if (poll == now_) {
                nextPoll_ += 5000;
                look();
            } else if (turn == now_) {
                change();
            } else {
                return;
            }
        }
    }
    std::optional<long> secondsOfCall() const {
        return isCall ? std::optional((now_ - callSince_) / 1000) : std::nullopt;
    }

private:
    long now_ = 0;
    long callSince_ = 0;
    long nextPoll_ = 0;
    std::optional<long> doubtSince_;  ///< when what was seen last differed from what was told

    bool isOther(const App& app) const {
        const bool byUser = std::ranges::any_of(app.userKeys, [&](const auto& key) { return userKeys.contains(key); });
        const bool byTable = !app.builtIn.empty() && !switchedOff.contains(app.builtIn);
        return !app.isNever && !byUser && !byTable;
    }
    void change() {
        doubtSince_.reset();
        isCall = !isCall;
        callSince_ = now_;
        nextPoll_ = now_ + 5000;
        events.push_back(std::to_string(now_) + (isCall ? " started " + names.front() : " ended"));
    }
};

/// Does the same to the detector's world and to the model's.
struct ComparedWorld : DetectionWorld {
    std::mt19937_64 random;
    Model model;
    Model::Scene scene;  ///< what is, shown or not
    bool isLost = false;
    base::HostTime begin{};
    std::vector<std::string> events;
    std::vector<std::string> steps;
    base::Subscription starts_;
    base::Subscription ends_;

    std::size_t pick(std::size_t count) { return static_cast<std::size_t>(random() % count); }
    const std::string& pick(const std::vector<std::string>& from) { return from[pick(from.size())]; }
    bool chance(std::size_t percent) { return pick(100) < percent; }

    explicit ComparedWorld(std::uint64_t seed) : random(seed) {
        for (const auto& app : kApps) {
            if (!app.host.empty()) applications.install(app.host, app.host);
        }
        if (chance(30)) open();
        begin = time.now();
        watch();
        const auto note = [this](const std::string& what) {
            const auto at = std::chrono::duration_cast<std::chrono::milliseconds>(time.now() - begin);
            events.push_back(std::to_string(at.count()) + what);
        };
        starts_ = detector->callStarted.observe([note](const auto& app) { note(" started " + app); });
        ends_ = detector->callEnded.observe([note] { note(" ended"); });
        model.look();
    }

    /// The model's side of a change that the monitor tells of, unless it cannot be seen.
    void show() {
        if (isLost) return;
        const bool isOtherUse = model.shown.apps != scene.apps || model.shown.isRunning != scene.isRunning;
        const bool isOtherDevice = model.shown.device != scene.device;
        model.shown = scene;
        if (scene.device != 0 && (isOtherUse || isOtherDevice)) model.look();
    }
    static std::vector<InputProcess> processes(const std::vector<const App*>& apps) {
        std::vector<InputProcess> all;
        for (const auto* app : apps) all.push_back({pidOf(*app), app->id});
        return all;
    }
    static std::int32_t pidOf(const App& app) { return static_cast<std::int32_t>(100 + (&app - kApps.data())); }

    void open() {
        const auto& app = kApps[pick(kApps.size())];
        if (!app.host.empty()) applications.own(pidOf(app), app.host);
        scene.apps.push_back(&app);
        inputUse.open(pidOf(app), app.id);
        show();
    }
    void close() {
        if (scene.apps.empty()) return;
        const auto* app = scene.apps[pick(scene.apps.size())];
        std::erase(scene.apps, app);
        inputUse.close(app->id);
        show();
    }
    void closeAll() {
        scene.apps.clear();
        inputUse.setProcesses({});
        show();
    }
    void slip() {
        if (isLost || scene.apps.empty()) return;
        scene.apps.pop_back();
        inputUse.slip(processes(scene.apps));
        model.shown.apps = scene.apps;
    }
    void repeat() {
        if (chance(30)) return inputUse.tellDefault();
        inputUse.tell();
        if (model.shown.device != 0) model.look();
    }
    void setDevice() {
        scene.device = static_cast<unsigned>(pick(3));
        inputUse.setDefault(scene.device);
        show();
    }
    void setRunning() {
        const std::optional<bool> choices[] = {std::nullopt, std::nullopt, false, true};
        scene.isRunning = choices[pick(4)];
        inputUse.setRunning(scene.isRunning);
        show();
    }
    void lose() {
        isLost = !isLost;
        isLost ? inputUse.loseServer() : inputUse.regainServer();
        show();
    }
    void flood() {
        for (std::size_t count = 5 + pick(15); count > 0; --count) {
            chance(50) ? repeat() : chance(50) ? open() : close();
            advance(static_cast<long>(pick(60)));
        }
    }
    void excludeOrInclude() {
        const auto& key = pick(kUserKeys);
        const bool isNew = model.userKeys.insert(key).second;
        if (!isNew) model.userKeys.erase(key);
        if (chance(50)) {
            isNew ? detector->exclusions().addIgnoredApp(key, key) : detector->exclusions().removeIgnoredApp(key);
            return;
        }
        std::map<std::string, std::string> stored;
        for (const auto& each : model.userKeys) stored.emplace(each, "from elsewhere");
        preferences.set("callDetectionIgnoredApps", stored);
    }
    void switchBuiltIn() {
        if (chance(20)) {
            model.switchedOff.clear();
            return detector->exclusions().restoreBuiltIns();
        }
        const auto& entry = pick(kBuiltIns);
        const bool isNowOff = model.switchedOff.insert(entry).second;
        if (!isNowOff) model.switchedOff.erase(entry);
        detector->exclusions().setBuiltInExcluded(entry, !isNowOff);
    }
    void advance(long milliseconds) {
        time.advance(std::chrono::milliseconds(milliseconds));
        model.advance(milliseconds);
    }
    void wait() {
        const long spans[] = {0, 1, 40, 300, 700, 999, 1000, 1001, 2500, 4000, 5000, 7000};
        advance(spans[pick(std::size(spans))]);
    }

    struct Step {
        const char* name;
        std::size_t share;  ///< percent
        void (ComparedWorld::*run)();
    };
    static constexpr Step kSteps[] = {
        {"wait", 30, &ComparedWorld::wait},
        {"open", 20, &ComparedWorld::open},
        {"close", 16, &ComparedWorld::close},
        {"close all", 4, &ComparedWorld::closeAll},
        {"slip", 4, &ComparedWorld::slip},
        {"repeat", 4, &ComparedWorld::repeat},
        {"device", 4, &ComparedWorld::setDevice},
        {"running", 3, &ComparedWorld::setRunning},
        {"lose or regain", 4, &ComparedWorld::lose},
        {"flood", 1, &ComparedWorld::flood},
        {"exclude or include", 6, &ComparedWorld::excludeOrInclude},
        {"switch built-in", 4, &ComparedWorld::switchBuiltIn},
    };
    void step() {
        std::size_t ticket = pick(100);
        for (const auto& each : kSteps) {
            if (ticket < each.share) {
                steps.emplace_back(each.name);
                return (this->*each.run)();
            }
            ticket -= each.share;
        }
        FAIL() << "the shares do not make a hundred";
    }

    bool agrees() const {
        const auto properties = detector->callContextProperties();
        const auto held = properties.find("hold_sec");
        const auto seconds = model.secondsOfCall();
        return events == model.events && isCall() == model.isCall && detector->microphoneInUse.get() == model.isCall &&
               detector->triggeringApps() == model.names && (held == properties.end()) == !seconds &&
               (!seconds || held->second == std::to_string(*seconds));
    }
    std::string story() const {
        std::ostringstream text;
        const auto tell = [&](const char* what, const std::vector<std::string>& lines) {
            text << what << ":";
            for (const auto& line : lines) text << "\n  " << line;
            text << "\n";
        };
        tell("steps", steps);
        tell("told", events);
        tell("to be told", model.events);
        tell("named", detector->triggeringApps());
        tell("to be named", model.names);
        return text.str();
    }
};

TEST(CallDetectorAgainstItsModel, TellsTheSameOverTenThousandSequencesOfEvents) {
    std::size_t told = 0;
    for (std::uint64_t seed = 1; seed <= 10'000; ++seed) {
        ComparedWorld world(seed);
        for (int count = 0; count < 40; ++count) {
            world.step();
            ASSERT_TRUE(world.agrees()) << "seed " << seed << "\n" << world.story();
        }
        told += world.events.size();
    }
    EXPECT_GT(told, 10'000U) << "too little happened to prove anything";
}

}  // namespace
}  // namespace tessivox::detection
