#pragma once

#include <array>
#include <string_view>

namespace tessivox::detection {

// Beginnings of identifiers. They only choose whom a call is named after; any application can make a call.
inline constexpr std::array<std::string_view, 13> kKnownCallApps{
    "us.zoom",
    "com.microsoft.teams",
    "com.tinyspeck.slackmacgap",
    "ru.keepcoder.Telegram",
    "com.tdesktop.Telegram",
    "net.whatsapp.WhatsApp",
    "desktop.WhatsApp",
    "com.apple.avconferenced",
    "com.cisco.webex",
    "Cisco-Systems.Spark",
    "com.hnc.Discord",
    "com.ovh.softcall",
    "com.skype",
};
inline constexpr std::array<std::string_view, 11> kBrowserPrefixes{
    "com.google.Chrome",
    "com.apple.WebKit",
    "com.apple.Safari",
    "company.thebrowser",
    "ai.perplexity.comet",
    "com.brave.Browser",
    "org.mozilla.firefox",
    "com.microsoft.edgemac",
    "com.operasoftware.Opera",
    "com.vivaldi.Vivaldi",
    "ru.yandex.desktop.yandex-browser",
};

/// Parts of the system, which never make a call.
inline constexpr std::array<std::string_view, 6> kSystemProcesses{
    "com.apple.CoreSpeech", "com.apple.audio.SandboxHelper",      "com.apple.audio.coreaudiod",
    "com.apple.replayd",    "com.apple.Sound-Settings.extension", "com.rogueamoeba.arkaudiod",
};
/// Dictation, recorders and note takers, which make none unless the user says so.
inline constexpr std::array<std::string_view, 14> kBuiltInExclusions{
    "app.spokenly",
    "com.superduper.superwhisper",
    "md.obsidian",
    "com.electron.wispr-flow",
    "com.openai.codex",
    "com.todesktop.230313mzl4w4u92",
    "com.anthropic.claudefordesktop",
    "com.apple.VoiceMemos",
    "com.apple.PhotoBooth",
    "com.apple.QuickTimePlayerX",
    "com.openai.chat",
    "com.obsproject.obs-studio",
    "com.goodsnooze.MacWhisper",
    "com.granola.app",
};

/// How likely it is that the application is what the call is held in: 0 for known call applications, 1 for browsers, 2
/// for all others.
int appTier(std::string_view bundleID);
inline constexpr int kBrowserTier = 1;

bool isBuiltInExclusion(std::string_view bundleID);

/// Whether the identifier is the entry's own or that of a part of it: "com.example.app" covers
/// "com.example.app.helper", not "com.example.application".
bool isCovered(std::string_view bundleID, std::string_view entry);

}  // namespace tessivox::detection
