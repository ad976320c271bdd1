#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

#include "services/telemetry/AnalyticsEvent.h"

namespace tessivox::telemetry {

/// One row of the vocabulary: a signal's name and the names of all parameters that it may carry.
struct EventRow {
    AnalyticsEvent event;
    std::string_view name;
    std::array<std::string_view, 12> parameters{};  ///< the rest is empty

    constexpr bool allows(std::string_view parameter) const {
        return !parameter.empty() && std::ranges::find(parameters, parameter) != parameters.end();
    }
};

/// The whole vocabulary, in the order of the enumeration.
inline constexpr std::array kVocabulary{
    EventRow{AnalyticsEvent::appLaunched, "app_launched", {}},
    EventRow{AnalyticsEvent::appTerminated, "app_terminated", {}},
    EventRow{AnalyticsEvent::updateAvailable, "update_available", {}},
    EventRow{AnalyticsEvent::updateInstalled, "update_installed", {"from", "to"}},
    EventRow{AnalyticsEvent::settingChanged, "setting_changed", {"key", "value"}},
    EventRow{AnalyticsEvent::onboardingStarted, "onboarding_started", {}},
    EventRow{AnalyticsEvent::onboardingStepViewed, "onboarding_step_viewed", {"step", "resumed"}},
    EventRow{AnalyticsEvent::onboardingCompleted, "onboarding_completed", {}},
    EventRow{AnalyticsEvent::onboardingSkipped, "onboarding_skipped", {"step"}},
    EventRow{AnalyticsEvent::acquisitionSource, "acquisition_source", {"source", "detail"}},
    EventRow{AnalyticsEvent::marketingConsent, "marketing_consent", {"consent", "source"}},
    EventRow{AnalyticsEvent::permissionResult, "permission_result", {"type", "granted"}},
    EventRow{AnalyticsEvent::permissionState, "permission_state", {"mic", "screen"}},
    EventRow{AnalyticsEvent::transcriptionBlocked, "transcription_blocked", {"reason", "attempt_id"}},
    EventRow{AnalyticsEvent::recordingStarted, "recording_started", {"source", "mic", "system", "audio_quality"}},
    EventRow{AnalyticsEvent::recordingStopped, "recording_stopped", {"duration_sec"}},
    EventRow{AnalyticsEvent::recordingFinalizeFailed, "recording_finalize_failed", {"rescued", "duration_sec"}},
    EventRow{AnalyticsEvent::recordingRecovered, "recording_recovered", {"count"}},
    EventRow{AnalyticsEvent::recordingPaused, "recording_paused", {}},
    EventRow{AnalyticsEvent::recordingResumed, "recording_resumed", {}},
    EventRow{AnalyticsEvent::transcriptionStarted,
             "transcription_started",
             {"attempt_id", "source", "resumed", "duration_sec", "file_size_kb", "upload_kb"}},
    EventRow{AnalyticsEvent::transcriptionCompleted,
             "transcription_completed",
             {"attempt_id", "source", "resumed", "duration_sec", "file_size_kb", "upload_kb", "has_gist", "result"}},
    EventRow{AnalyticsEvent::transcriptionFailed,
             "transcription_failed",
             {"attempt_id", "source", "resumed", "duration_sec", "file_size_kb", "upload_kb", "stage", "upload_retries",
              "reason", "error_code", "error_domain", "app_version"}},
    EventRow{AnalyticsEvent::transcriptionResumed, "transcription_resumed", {"age_min"}},
    EventRow{AnalyticsEvent::surveyShown, "survey_shown", {"survey_id", "forced"}},
    EventRow{AnalyticsEvent::surveyAnswered, "survey_answered", {"survey_id", "forced", "answer"}},
    EventRow{AnalyticsEvent::surveyDismissed, "survey_dismissed", {"survey_id", "forced", "action"}},
    EventRow{AnalyticsEvent::surveyCommentSent, "survey_comment_sent", {"survey_id", "forced"}},
    EventRow{AnalyticsEvent::settingsOpened, "settings_opened", {}},
    EventRow{AnalyticsEvent::aboutOpened, "about_opened", {}},
    EventRow{AnalyticsEvent::recordingsListOpened, "recordings_list_opened", {}},
    EventRow{AnalyticsEvent::recordingDeleted, "recording_deleted", {}},
    EventRow{AnalyticsEvent::recordingRenamed, "recording_renamed", {}},
    EventRow{AnalyticsEvent::recordingRevealed, "recording_revealed", {}},
    EventRow{AnalyticsEvent::recordingPlayed, "recording_played", {}},
    EventRow{AnalyticsEvent::transcriptOpened, "transcript_opened", {}},
    EventRow{AnalyticsEvent::summaryOpened, "summary_opened", {}},
    EventRow{AnalyticsEvent::readerCopy, "reader_copy", {"kind"}},
    EventRow{AnalyticsEvent::readerShare, "reader_share", {"kind"}},
    EventRow{AnalyticsEvent::openRecordingsFolder, "open_recordings_folder", {}},
    EventRow{AnalyticsEvent::checkForUpdates, "check_for_updates", {}},
    EventRow{AnalyticsEvent::feedbackOpened, "feedback_opened", {}},
    EventRow{AnalyticsEvent::messageSent, "message_sent", {"has_email"}},
    EventRow{AnalyticsEvent::summaryGenerated, "summary_generated", {"mode"}},
    EventRow{AnalyticsEvent::summaryFailed, "summary_failed", {"mode", "reason"}},
    EventRow{AnalyticsEvent::callDetected, "call_detected", {"is_new_call", "trigger_app", "all_apps"}},
    EventRow{AnalyticsEvent::recordingPromptShown, "recording_prompt_shown", {"trigger_app", "hold_sec"}},
    EventRow{AnalyticsEvent::recordingPromptAccepted, "recording_prompt_accepted", {"trigger_app", "hold_sec"}},
    EventRow{AnalyticsEvent::recordingPromptDeclined, "recording_prompt_declined", {"trigger_app", "hold_sec"}},
    EventRow{AnalyticsEvent::stopPromptShown, "stop_prompt_shown", {}},
    EventRow{AnalyticsEvent::stopPromptAccepted, "stop_prompt_accepted", {}},
    EventRow{AnalyticsEvent::stopPromptDeclined, "stop_prompt_declined", {}},
    EventRow{AnalyticsEvent::recordingPromptTimeout, "recording_prompt_timeout", {"trigger_app", "hold_sec"}},
    EventRow{AnalyticsEvent::recordingPromptAppIgnored, "recording_prompt_app_ignored", {"trigger_app", "hold_sec"}},
    EventRow{AnalyticsEvent::callEnded, "call_ended", {"trigger_app", "hold_sec"}},
    EventRow{AnalyticsEvent::audioFileImported, "audio_file_imported", {"original_format", "converted"}},
    EventRow{AnalyticsEvent::audioFileImportFailed, "audio_file_import_failed", {"reason", "format"}},
    EventRow{AnalyticsEvent::analyticsDisabled, "analytics_disabled", {}},
};

constexpr const EventRow& rowOf(AnalyticsEvent event) { return kVocabulary[static_cast<std::size_t>(event)]; }

constexpr bool isInEnumerationOrder() {
    for (std::size_t index = 0; index < kVocabulary.size(); ++index) {
        if (static_cast<std::size_t>(kVocabulary[index].event) != index) return false;
    }
    return kVocabulary.back().event == AnalyticsEvent::analyticsDisabled;
}
static_assert(isInEnumerationOrder());

}  // namespace tessivox::telemetry
