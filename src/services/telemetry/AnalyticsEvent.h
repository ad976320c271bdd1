#pragma once

#include <map>
#include <string>
#include <string_view>

namespace tessivox::telemetry {

/// Every usage signal there is.
enum class AnalyticsEvent {
    appLaunched,
    appTerminated,
    updateAvailable,
    updateInstalled,
    settingChanged,
    onboardingStarted,
    onboardingStepViewed,
    onboardingCompleted,
    onboardingSkipped,
    acquisitionSource,
    marketingConsent,
    permissionResult,
    permissionState,
    transcriptionBlocked,
    recordingStarted,
    recordingStopped,
    recordingFinalizeFailed,
    recordingRecovered,
    recordingPaused,
    recordingResumed,
    transcriptionStarted,
    transcriptionCompleted,
    transcriptionFailed,
    transcriptionResumed,
    surveyShown,
    surveyAnswered,
    surveyDismissed,
    surveyCommentSent,
    settingsOpened,
    aboutOpened,
    recordingsListOpened,
    recordingDeleted,
    recordingRenamed,
    recordingRevealed,
    recordingPlayed,
    transcriptOpened,
    summaryOpened,
    readerCopy,
    readerShare,
    openRecordingsFolder,
    checkForUpdates,
    feedbackOpened,
    messageSent,
    summaryGenerated,
    summaryFailed,
    callDetected,
    recordingPromptShown,
    recordingPromptAccepted,
    recordingPromptDeclined,
    stopPromptShown,
    stopPromptAccepted,
    stopPromptDeclined,
    recordingPromptTimeout,
    recordingPromptAppIgnored,
    callEnded,
    audioFileImported,
    audioFileImportFailed,
    analyticsDisabled,
};

/// What a signal carries: texts, whatever they mean.
using Parameters = std::map<std::string, std::string>;

/// The signal's name, as it is sent.
std::string_view signalName(AnalyticsEvent event);

}  // namespace tessivox::telemetry
