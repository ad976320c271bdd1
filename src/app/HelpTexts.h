#pragma once

#include <string_view>

namespace tessivox::app {

inline constexpr std::string_view kMainHelp =
    R"(Tessivox records meetings: your microphone left, the computer's sound right.

Usage:
  tessivox record [options]     record until q, Ctrl-C or --for ends it
  tessivox import FILE...       make recordings of other sound files
  tessivox transcribe FILE      make the transcript of a recording
  tessivox summarize FILE       make the summary of a transcript
  tessivox list [--json]        list the recordings, newest first
  tessivox show FILE [options]  print a transcript or a summary
  tessivox rename FILE NAME     give a recording another name
  tessivox trash FILE           move a recording to the trash
  tessivox recover              finish recordings that were interrupted
  tessivox run --headless       stay ready in the background
  tessivox get [KEY]            print the settings
  tessivox set KEY VALUE        change a setting
  tessivox exclude list|add|remove
                                the applications that are never taken for a call
  tessivox start                let the program that runs in the background record
  tessivox stop                 stop and save its recording
  tessivox pause                pause its recording
  tessivox resume               go on with its recording
  tessivox toggle               start or stop, whichever is due: for a keyboard shortcut
  tessivox status [--json]      tell what it does
  tessivox usage                tell how many transcriptions the server has left
  tessivox devices [--json]     list the microphones
  tessivox --version

Options of every command:
  --server URL    the server that transcribes, instead of this computer's own: https, or http on this computer
  --ca-file FILE  trust these certificates (PEM) too when connecting to it
  --verbose       tell on standard error what happens inside
  --help          explain the command

Transcripts are made on this computer by tessivox-backend, which is started when it is needed, unless --server, the
variable TESSIVOX_SERVER or the settings ("serverURL") name another server.
)";

inline constexpr std::string_view kRecordHelp =
    R"(Records the microphone and the computer's sound into one stereo .m4a file.

Usage:
  tessivox record [options]

Options (what is not given is as in the settings; nothing given is stored):
  --for DURATION          stop after that much sound: 30s, 5m, 1h30m, or 90 for seconds
  --output FILE           name of the recording; ends in .m4a, must not exist yet, in a folder that exists
                          (otherwise a name made of date and time, in the recordings folder)
  --mic NAME              microphone by its name or uid (see `tessivox devices`),
                          "default" for the system's, "none" for no microphone
  --system on|off         the computer's sound
  --quality low|medium|high
                          64, 128 or 256 kbit/s
  --separate-tracks       also save each source in a file of its own (..._mic.m4a, ..._system.m4a)
  --transcribe            make the transcript afterwards, as `tessivox transcribe` does; the summary too if the settings
                          want one
  --server URL            the server for that, instead of this computer's own
  --ca-file FILE          trust these certificates (PEM) too when connecting to it
  --verbose               tell on standard error what happens inside

In a terminal, p pauses and resumes, q stops and saves. Ctrl-C, SIGTERM and SIGHUP stop and save too; a second one while
it still saves leaves the recoverable temporary file and ends at once.

The path of the recording is the only thing written to standard output; with --transcribe that of the transcript follows,
both once the transcript is there, since its title may rename them.

Exit status: 0 saved, 1 failed or incomplete, 2 wrong usage, 4 nothing was recorded.
)";

inline constexpr std::string_view kImportHelp =
    R"(Makes a recording of each sound file and writes its path to standard output: an .m4a file of the same name in the
recordings folder, with a number behind the name if it is taken. The files themselves stay as they are. If the settings
want it ("autoTranscribe", which they do unless it was changed), the transcripts are made afterwards, as
`tessivox transcribe` does, and their paths follow.

Usage:
  tessivox import FILE...

  FILE         a sound file that ends in .m4a, .mp3, .wav, .aiff or .caf

Options:
  --server URL    the server for the transcripts, instead of this computer's own
  --ca-file FILE  trust these certificates (PEM) too when connecting to it
  --verbose    tell on standard error what happens inside
  --           what follows is a name, even if it begins with a dash

Ctrl-C ends it; of the file that is being imported nothing is left behind.

Exit status: 0 all imported, 1 one failed or it was interrupted, 2 wrong usage.
)";

inline constexpr std::string_view kTranscribeHelp =
    R"(Makes the transcript of a recording and writes its path to standard output. It is a text file beside the recording, with
the ending .txt. A recording that is named by its date is renamed if the server finds a title. Nothing takes the place
of a transcript that is there already.

Usage:
  tessivox transcribe FILE [--wait]

  FILE         the recording: a path, or the name of one in the recordings folder, with or without .m4a

Options:
  --wait       wait for the transcript in any case. Otherwise, where `tessivox run` runs, the command ends as soon as the
               server has the recording; run saves the transcript. If it does not run, there is nobody else to wait.
  --server URL    the server, instead of this computer's own: https, or http on this computer
  --ca-file FILE  trust these certificates (PEM) too when connecting to it
  --verbose    tell on standard error what happens inside
  --           what follows is a name, even if it begins with a dash

Ctrl-C ends the wait, not the work: once the server has the recording it goes on, and the same command or the next start
of `tessivox run` fetches the transcript without another upload, for a day.

Exit status: 0 the transcript is there, is left to run, or there was no speech; 1 failed or interrupted, 2 wrong usage.
)";

inline constexpr std::string_view kSummarizeHelp =
    R"(Makes the summary of a recording that has a transcript and writes its path to standard output. It is a text file beside the
recording, with the ending .summary.txt. Nothing takes the place of a summary that is there already.

Usage:
  tessivox summarize FILE

  FILE         the recording: a path, or the name of one in the recordings folder, with or without .m4a

Options:
  --server URL    the server, instead of this computer's own: https, or http on this computer
  --ca-file FILE  trust these certificates (PEM) too when connecting to it
  --verbose    tell on standard error what happens inside
  --           what follows is a name, even if it begins with a dash

Exit status: 0 the summary is there, 1 failed or interrupted, 2 wrong usage.
)";

inline constexpr std::string_view kUsageHelp =
    R"(Asks the server how many transcriptions are used and left.

Usage:
  tessivox usage

Options:
  --server URL    the server, instead of this computer's own: https, or http on this computer
  --ca-file FILE  trust these certificates (PEM) too when connecting to it
  --verbose    tell on standard error what happens inside

Exit status: 0 told, 1 the server does not answer, 2 wrong usage.
)";

inline constexpr std::string_view kDevicesHelp =
    R"(Lists the microphones, and where the computer's sound is recorded from.

Usage:
  tessivox devices [--json]

Options:
  --json       print one JSON object; its members and their meaning stay as they are, others may be added:
                 "inputs"             array of microphones, each an object of
                   "name"               display name, text
                   "uid"                persistent name, text, which --mic takes
                   "isDefault"          true for the system's default
                 "defaultInput"       uid of the default microphone, or null
                 "systemAudioSource"  name of the source of the computer's sound, or null
  --verbose    tell on standard error what happens inside

Exit status: 0 listed, 1 no sound server, 2 wrong usage.
)";

inline constexpr std::string_view kRunHelp =
    R"(Starts the program and lets it run until it is told to end. Interrupted recordings are finished first, in the
background, and transcripts are fetched that earlier runs and other commands are waiting for. Only one runs for
each user; a second one brings the first forward, says so and ends. The commands start, stop, pause, resume, toggle
and status reach it over the session bus, where there is one.

It notices when another application takes sound from a microphone. As the settings say, it asks in a notification
whether to record (on standard error where there is none; `tessivox start` is the answer), or records by itself until
the call ends: tessivox set showRecordingPrompt off, tessivox set autoStartRecording on.

Usage:
  tessivox run --headless

Options:
  --headless   without windows and status icon; what would be asked is written to standard error and answered so that
               nothing is lost
  --server URL    the server that transcribes, instead of this computer's own: https, or http on this computer
  --ca-file FILE  trust these certificates (PEM) too when connecting to it
  --verbose    tell on standard error what happens inside

Ctrl-C, SIGTERM and SIGHUP end it at once. A recording that runs is not stopped; the next start finishes it.

Exit status: 0 ended or already running, 1 failed, 2 wrong usage.
)";

inline constexpr std::string_view kStartHelp =
    R"(Lets the program that `tessivox run` has started record, and waits until it does.

Usage:
  tessivox start

Options:
  --verbose    tell on standard error what happens inside

Exit status: 0 it records, 1 refused or no answer, 2 wrong usage, 3 `tessivox run` does not run.
)";

inline constexpr std::string_view kStopHelp =
    R"(Stops the recording of the program that `tessivox run` has started, waits until it is saved and writes its path to
standard output. Ctrl-C ends the wait, not the saving.

Usage:
  tessivox stop

Options:
  --verbose    tell on standard error what happens inside

Exit status: 0 saved, 1 failed, incomplete, refused or no answer, 2 wrong usage, 3 `tessivox run` does not run,
4 nothing was recorded.
)";

inline constexpr std::string_view kPauseHelp =
    R"(Pauses the recording of the program that `tessivox run` has started. What is heard meanwhile is left out.

Usage:
  tessivox pause

Options:
  --verbose    tell on standard error what happens inside

Exit status: 0 it pauses, 1 refused or no answer, 2 wrong usage, 3 `tessivox run` does not run.
)";

inline constexpr std::string_view kResumeHelp =
    R"(Goes on with a recording that `tessivox pause` has paused.

Usage:
  tessivox resume

Options:
  --verbose    tell on standard error what happens inside

Exit status: 0 it records again, 1 refused or no answer, 2 wrong usage, 3 `tessivox run` does not run.
)";

inline constexpr std::string_view kToggleHelp =
    R"(Starts a recording as `tessivox start` does if none runs, and otherwise stops it as `tessivox stop` does: one command for a
keyboard shortcut of the desktop.

Usage:
  tessivox toggle

Options:
  --verbose    tell on standard error what happens inside

Exit status: 0 it records, or is saved, 1 failed, incomplete, refused or no answer, 2 wrong usage, 3 `tessivox run` does
not run, 4 nothing was recorded.
)";

inline constexpr std::string_view kStatusHelp =
    R"(Tells what the program that `tessivox run` has started does: whether it records, how long, into which file, and whether it
sees a call.

Usage:
  tessivox status [--json]

Options:
  --json       print one JSON object; its members and their meaning stay as they are, others may be added:
                 "isRunning"       whether `tessivox run` runs
                 "isRecording"     whether it records; also while the recording pauses
                 "isPaused"        whether the recording pauses
                 "isCallDetected"  whether it sees a call
                 "duration"        seconds of the recording so far
                 "path", "url"     the file that is being recorded, as text and as a URL that holds names of any bytes,
                                   or null
  --verbose    tell on standard error what happens inside

Exit status: 0 told, 1 no answer, 2 wrong usage, 3 `tessivox run` does not run.
)";

inline constexpr std::string_view kListHelp =
    R"(Lists the recordings in the recordings folder with date, duration, title, size and what belongs to them, newest first.

Usage:
  tessivox list [--json]

Options:
  --json       print one JSON array; the members of its objects stay as they are, others may be added:
                 "path", "url"    the file, as text and as a URL that holds names of any bytes
                 "name"           the file's name without its ending
                 "date"           when it was made, ISO 8601 in UTC
                 "duration"       seconds
                 "size"           bytes
                 "title", "gist"  what the user or the transcript calls it, or null
                 "subTracks"      array of the separate tracks
                 "hasTranscript", "hasSummary"
  --verbose    tell on standard error what happens inside

Exit status: 0 listed, 1 the folder cannot be read, 2 wrong usage.
)";

inline constexpr std::string_view kShowHelp =
    R"(Prints the transcript of a recording, or its summary.

Usage:
  tessivox show FILE [--summary] [--format text|md|srt|vtt|json]

  FILE         the recording: a path, or the name of one in the recordings folder, with or without .m4a; or the
               transcript or summary itself, a file that ends in .txt or .summary.txt

Options:
  --summary    the summary instead of the transcript
  --format text|md|srt|vtt|json
               text (otherwise), Markdown, captions as SubRip or WebVTT, or one JSON object; the members of the object
               stay as they are, others may be added:
                 "path"           the text file
                 "recording"      the audio file, or null if it is not there
                 "title", "gist"  what the user or the transcript calls it, or null
                 "date"           when the recording was made, ISO 8601 in UTC, or null
                 "segments"       array of the transcript's lines, each an object of "time" (as the transcript has it),
                                  "start" (seconds), "speaker" and "text"
                 "blocks"         array of the summary's lines instead, each an object of "kind" (h1, h2, h3, bullet,
                                  paragraph or meta) and "text"
               Captions last until the next one, the last as long as its text takes to read.
  --verbose    tell on standard error what happens inside
  --           what follows is a name, even if it begins with a dash

Exit status: 0 printed, 1 there is no transcript or summary, 2 wrong usage.
)";

inline constexpr std::string_view kRenameHelp =
    R"(Gives a recording another name, and everything that belongs to it: transcript, summary and separate tracks.

Usage:
  tessivox rename FILE NAME

  FILE         the recording: a path, or the name of one in the recordings folder, with or without .m4a
  NAME         its new name, without folder and ending

Options:
  --verbose    tell on standard error what happens inside
  --           what follows is a name, even if it begins with a dash

Exit status: 0 renamed, 1 failed, 2 wrong usage.
)";

inline constexpr std::string_view kTrashHelp =
    R"(Moves a recording to the trash, with everything that belongs to it: transcript, summary and separate tracks.

Usage:
  tessivox trash FILE

  FILE         the recording: a path, or the name of one in the recordings folder, with or without .m4a

Options:
  --verbose    tell on standard error what happens inside
  --           what follows is a name, even if it begins with a dash

Exit status: 0 in the trash, 1 failed, 2 wrong usage.
)";

inline constexpr std::string_view kGetHelp =
    R"(Prints the value of a setting, or all of them as lines of the form KEY=VALUE.

Usage:
  tessivox get [KEY]

  KEY          one of these:
                 recordingsDirectory   the recordings folder
                 selectedMicrophoneID  uid of the microphone, or default
                 recordMicrophone, recordSystemAudio
                                       what is recorded: on or off, as all that follow unless another value is named
                 audioQuality          low, medium or high
                 saveSeparateTracks    also save each source in a file of its own
                 showRecordingPrompt   ask whether to record when a call begins
                 autoStartRecording    record without asking when a call begins
                 autoStopRecording     stop without asking when it ends
                 autoTranscribe, autoSummarize
                                       what is made of a recording by itself
                 serverURL             the server that transcribes; empty for this computer's own. Whatever may be a
                                       secret in it is shown as ***
                 launchAtLogin         start with the session
                 showInDock            show an icon beside those of other applications
                 analyticsEnabled      send usage signals, if an address for them is configured

Options:
  --verbose    tell on standard error what happens inside

Exit status: 0 printed, 1 failed, 2 wrong usage.
)";

inline constexpr std::string_view kSetHelp =
    R"(Changes a setting. A program that runs heeds it at once.

Usage:
  tessivox set KEY VALUE

  KEY          a setting that `tessivox get --help` lists
  VALUE        its new value: on or off for a switch; "" puts recordingsDirectory and serverURL back to what they are at
               first

Options:
  --verbose    tell on standard error what happens inside
  --           what follows is a name, even if it begins with a dash

Exit status: 0 stored, 1 failed, 2 wrong usage.
)";

inline constexpr std::string_view kExcludeHelp =
    R"(Lists and changes the applications that are never taken for a call, whatever they do with the microphone. Some are built
in, such as recorders and dictation; of these the list has those that are installed. A program that runs heeds a change
at once.

Usage:
  tessivox exclude list [--json]
  tessivox exclude add APP...
  tessivox exclude remove APP...

  APP          an application: its identifier as the list shows it, its desktop file (a path, or its name), or its name.
               What is removed makes calls again; a built-in entry is switched off, and on again by add.

Options:
  --json       print one JSON array; the members of its objects stay as they are, others may be added:
                 "id", "name"     identifier and name of the application
                 "desktopFile"    path of its desktop file, or null if it is not installed
                 "isBuiltIn"      whether the entry is built in
                 "isExcluded"     false for a built-in entry that is switched off
  --verbose    tell on standard error what happens inside
  --           what follows is a name, even if it begins with a dash

Exit status: 0 done, 1 failed, 2 wrong usage.
)";

inline constexpr std::string_view kRecoverHelp =
    R"(Finishes the recordings that a crash, a kill or a power failure interrupted, and prints the path of each. What another
program records or recovers just now is left alone. The start of `tessivox run` does the same.

Usage:
  tessivox recover

Options:
  --verbose    tell on standard error what happens inside

Exit status: 0 finished, 1 interrupted or failed, 2 wrong usage. What could not be finished is tried again next time.
)";

}  // namespace tessivox::app
