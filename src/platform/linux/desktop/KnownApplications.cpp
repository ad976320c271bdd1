#include "platform/linux/desktop/KnownApplications.h"

#include <algorithm>
#include <iterator>

#include "platform/linux/desktop/UntrustedText.h"

namespace tessivox::desktop {
namespace {

constexpr KnownApplication kKnown[] = {
    // Applications for calls.
    {"us.zoom.xos", "zoom us.zoom.zoom zoom-client zoom.real zoomlauncher zoomwebviewhost zoomwebhost aomhost"},
    {"com.microsoft.teams", "teams teams-insiders com.microsoft.teams microsoft-teams"},
    {"com.microsoft.teams", "teams-for-linux com.github.ismaelmartinez.teams_for_linux portal-for-teams"},
    {"com.tinyspeck.slackmacgap", "slack com.slack.slack slack-desktop"},
    {"com.tdesktop.Telegram", "org.telegram.desktop telegram-desktop telegramdesktop telegram"},
    {"ru.keepcoder.Telegram",
     "io.github.kotatogram kotatogram-desktop kotatogramdesktop io.github.tdesktop_x64.tdesktop 64gram-desktop 64gram "
     "com.ayugram.desktop ayugram-desktop ayugram"},
    {"net.whatsapp.WhatsApp",
     "com.github.eneshecan.whatsappforlinux whatsapp-for-linux com.github.xeco23.wasistlos wasistlos "
     "com.rtosta.zapzap zapzap com.ktechpit.whatsie whatsie io.github.mimbrero.whatsappdesktop"},
    {"desktop.WhatsApp", "whatsapp whatsapp-desktop whatsapp-desktop-client whatsapp-linux-app whatsdesk altus"},
    {"Cisco-Systems.Spark", "webex ciscocollabhost ciscocollabhostcef"},
    {"com.cisco.webexmeetingsapp", "com.cisco.webex webex-meetings webexmeetings atmgr"},
    {"com.hnc.Discord",
     "discord com.discordapp.discord discordcanary discord-canary com.discordapp.discordcanary discordptb discord-ptb "
     "discord-development discorddevelopment"},
    {"com.hnc.Discord", "vesktop dev.vencord.vesktop equibop"},
    {"com.hnc.Discord", "webcord io.github.spacingbat3.webcord"},
    {"com.hnc.Discord", "legcord app.legcord.legcord armcord xyz.armcord.armcord"},
    {"com.hnc.Discord", "de.shorsh.discord-screenaudio discord-screenaudio goofcord io.github.milkshiift.goofcord"},
    {"com.skype.skype", "skypeforlinux com.skype.client skype skypeforlinux-insiders skype-wrapper"},

    // Browsers. What is built on an engine of one of the listed browsers is a browser as that one is.
    {"com.google.Chrome", "google-chrome com.google.chrome google-chrome-stable chrome"},
    {"com.google.Chrome.beta", "google-chrome-beta com.google.chrome.beta"},
    {"com.google.Chrome.dev", "google-chrome-unstable com.google.chromedev google-chrome-canary"},
    {"com.google.Chrome", "chromium org.chromium.chromium chromium-browser chromium_chromium chromium-freeworld"},
    {"com.google.Chrome",
     "io.github.ungoogled_software.ungoogled_chromium ungoogled-chromium net.thorium.thorium thorium-browser thorium "
     "cromite helium com.github.eloston.ungoogledchromium"},
    {"com.google.Chrome", "org.kde.falkon falkon"},
    {"com.google.Chrome", "org.qutebrowser.qutebrowser qutebrowser"},
    {"com.google.Chrome", "org.kde.konqueror konqueror org.kde.angelfish angelfish"},
    {"com.apple.WebKit.WebContent", "webkitwebprocess webkitgtkprocess"},
    {"com.apple.Safari", "org.gnome.epiphany epiphany epiphany-browser org.gnome.epiphany.devel"},
    {"com.apple.Safari", "midori org.midori_browser.midori surf luakit nyxt engineer.atlas.nyxt"},
    {"com.brave.Browser", "brave-browser com.brave.browser brave brave-browser-stable"},
    {"com.brave.Browser.beta", "brave-browser-beta com.brave.browser.beta"},
    {"com.brave.Browser.nightly", "brave-browser-nightly com.brave.browser.nightly"},
    {"org.mozilla.firefox", "firefox org.mozilla.firefox firefox-esr firefox-bin firefox_firefox firefox-beta"},
    {"org.mozilla.firefox", "firefox-developer-edition firefoxdeveloperedition firefox-nightly firefox-devedition"},
    {"org.mozilla.firefox", "librewolf io.gitlab.librewolf-community librewolf-bin"},
    {"org.mozilla.firefox", "net.waterfox.waterfox waterfox waterfox-bin"},
    {"org.mozilla.firefox", "app.zen_browser.zen zen zen-browser zen-bin zen-twilight"},
    {"org.mozilla.firefox", "one.ablaze.floorp floorp floorp-bin"},
    {"org.mozilla.firefox", "torbrowser-launcher org.torproject.torbrowser-launcher tor-browser firefox.real"},
    {"org.mozilla.firefox",
     "net.mullvad.mullvadbrowser mullvad-browser mullvadbrowser icecat abrowser seamonkey palemoon"},
    {"com.microsoft.edgemac", "microsoft-edge com.microsoft.edge msedge microsoft-edge-stable"},
    {"com.microsoft.edgemac.Beta", "microsoft-edge-beta com.microsoft.edge.beta"},
    {"com.microsoft.edgemac.Dev", "microsoft-edge-dev com.microsoft.edgedev"},
    {"com.operasoftware.Opera", "opera com.opera.opera opera-stable"},
    {"com.operasoftware.OperaNext", "opera-beta"},
    {"com.operasoftware.OperaDeveloper", "opera-developer"},
    {"com.vivaldi.Vivaldi", "vivaldi-stable com.vivaldi.vivaldi vivaldi vivaldi-bin"},
    {"com.vivaldi.Vivaldi.snapshot", "vivaldi-snapshot"},
    {"ru.yandex.desktop.yandex-browser",
     "yandex-browser ru.yandex.browser yandex_browser yandex-browser-beta yandex-browser-corporate"},
    {"ai.perplexity.comet", "comet-browser perplexity-comet"},

    // Excluded from the beginning: dictation.
    {"app.spokenly", "spokenly"},
    {"app.spokenly", "net.mkiol.speechnote dsnote speechnote speech-note"},
    {"com.superduper.superwhisper", "superwhisper"},
    {"com.superduper.superwhisper", "com.pais.handy handy whispering com.bradenwong.whispering openwhispr voxtype"},
    {"com.electron.wispr-flow", "wispr-flow wisprflow wispr"},
    {"com.electron.wispr-flow", "nerd-dictation vocalinux blurt whisper-overlay hyprwhspr elograf"},
    {"com.goodsnooze.MacWhisper", "macwhisper"},
    {"com.goodsnooze.MacWhisper", "io.github.chidiwilliams.buzz buzz buzz-captions com.thewh1teagle.vibe vibe"},
    {"com.goodsnooze.MacWhisper", "net.sapples.livecaptions livecaptions"},
    // Notes, and assistants that listen.
    {"md.obsidian", "obsidian md.obsidian.obsidian"},
    {"com.granola.app", "granola"},
    {"com.openai.codex", "codex codex-desktop"},
    {"com.todesktop.230313mzl4w4u92", "cursor co.anysphere.cursor cursor-url-handler"},
    {"com.anthropic.claudefordesktop",
     "claude-desktop claude com.anthropic.claude io.github.aaddrick.claude-desktop-debian"},
    {"com.openai.chat", "chatgpt chatgpt-desktop chat-gpt com.openai.chatgpt com.lencx.chatgpt"},
    // Recorders of sound.
    {"com.apple.VoiceMemos", "org.gnome.soundrecorder gnome-sound-recorder org.gnome.vocalis vocalis"},
    {"com.apple.VoiceMemos", "org.kde.krecorder krecorder"},
    {"com.apple.VoiceMemos", "com.github.ryonakano.reco audio-recorder com.github.audio-recorder qarecord"},
    {"com.apple.VoiceMemos", "org.audacityteam.audacity audacity org.tenacityaudio.tenacity tenacity"},
    {"com.apple.VoiceMemos",
     "org.ardour.ardour ardour ardour7 ardour8 fm.reaper.reaper cockos-reaper reaper qtractor "
     "org.rncbc.qtractor org.zrythm.zrythm zrythm com.bitwig.bitwigstudio ocenaudio"},
    // Cameras.
    {"com.apple.PhotoBooth", "org.gnome.cheese cheese"},
    {"com.apple.PhotoBooth",
     "org.gnome.snapshot snapshot org.kde.kamoso kamoso guvcview io.github.webcamoid.webcamoid webcamoid"},
    // Recorders of the screen.
    {"com.apple.QuickTimePlayerX", "simplescreenrecorder be.maartenbaert.simplescreenrecorder ssr-glinject"},
    {"com.apple.QuickTimePlayerX", "io.github.seadve.kooha kooha"},
    {"com.apple.QuickTimePlayerX", "com.github.vkohaupt.vokoscreenng vokoscreenng vokoscreen"},
    {"com.apple.QuickTimePlayerX",
     "com.dec05eba.gpu_screen_recorder gpu-screen-recorder gpu-screen-recorder-gtk gsr-ui"},
    {"com.apple.QuickTimePlayerX",
     "org.kde.spectacle spectacle com.uploadedlobster.peek peek kazam recordmydesktop "
     "gtk-recordmydesktop sa.sy.bluerecorder blue-recorder green-recorder"},
    {"com.obsproject.obs-studio", "com.obsproject.studio obs obs-studio obs64"},
    {"com.obsproject.obs-studio", "streamlabs slobs-client streamlabs-obs"},
};

constexpr std::string_view kNeverInCall =
    // Chains of filters: whoever uses the microphone they make is listed by itself.
    "easyeffects com.github.wwmm.easyeffects pulseeffects com.github.wwmm.pulseeffects noisetorch "
    "com.github.noisetorch.noisetorch cadmus jamesdsp me.timschneeberger.jdsp4linux "
    "me.timschneeberger.jdsp4linux.pulse "
    "carla carla-rack calf calfjackhost "
    "lsp-plugins net.lsp_plug.plugins "
    // The sound server, its patch bays and its services.
    "pipewire pipewire-pulse pipewire-media-session wireplumber pulseaudio org.pipewire.helvum helvum qpwgraph "
    "org.rncbc.qpwgraph coppwr io.github.dimtpap.coppwr jackd jackdbus module-echo-cancel "
    // Level meters and pictures of sound.
    "pavucontrol org.pulseaudio.pavucontrol pavucontrol-qt pwvucontrol com.saivert.pwvucontrol plasmashell plasma-pa "
    "kmix org.kde.kmix gnome-control-center org.gnome.settings gnome-settings-daemon gsd-media-keys gnome-shell "
    "org.gnome.volumecontrol systemsettings org.kde.systemsettings kcmshell5 kcmshell6 cinnamon-settings cinnamon "
    "mate-volume-control xfce4-pulseaudio-plugin xfce4-mixer cosmic-settings io.elementary.switchboard cava glava "
    "pamixer pasystray volumeicon "
    // Speech for screen readers.
    "speech-dispatcher speech-dispatcher-dummy sd_espeak sd_espeak-ng sd_espeak-ng-mbrola sd_generic sd_flite "
    "sd_festival sd_dummy sd_openjtalk sd_cicero sd_pico sd_rhvoice sd_voxin sd_ibmtts orca org.gnome.orca brltty "
    "espeakup "
    // This program.
    "tessivox tessivox-backend";

/// Calls with each word until the call says that it has found what it looked for.
bool anyWord(std::string_view words, const auto& call) {
    while (!words.empty()) {
        const auto end = std::min(words.find(' '), words.size());
        if (end > 0 && call(words.substr(0, end))) return true;
        words.remove_prefix(std::min(end + 1, words.size()));
    }
    return false;
}

bool holds(std::string_view words, std::string_view name) {
    return anyWord(words, [&](std::string_view word) { return word == name; });
}

}  // namespace

const KnownApplication* knownApplication(std::string_view name) {
    const auto wanted = lowerCased(name);
    const auto found = std::ranges::find_if(kKnown, [&](const auto& known) { return holds(known.names, wanted); });
    return found == std::end(kKnown) ? nullptr : &*found;
}

std::vector<std::string> namesOf(const KnownApplication& application) {
    std::vector<std::string> names;
    anyWord(application.names, [&](std::string_view name) {
        names.emplace_back(name);
        return false;
    });
    return names;
}

std::vector<std::string> namesFor(std::string_view identifier) {
    std::vector<std::string> all;
    for (const auto& known : kKnown) {
        if (known.identifier != identifier) continue;
        const auto names = namesOf(known);
        all.insert(all.end(), names.begin(), names.end());
    }
    return all;
}

bool isNeverInCall(std::string_view name) { return holds(kNeverInCall, lowerCased(name)); }

}  // namespace tessivox::desktop
