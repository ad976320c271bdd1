# Completion of tessivox for fish.

complete -c tessivox -f

complete -c tessivox -n __fish_use_subcommand -a record -d 'record until q, Ctrl-C or --for ends it'
complete -c tessivox -n __fish_use_subcommand -a import -d 'make recordings of other sound files'
complete -c tessivox -n __fish_use_subcommand -a transcribe -d 'make the transcript of a recording'
complete -c tessivox -n __fish_use_subcommand -a summarize -d 'make the summary of a transcript'
complete -c tessivox -n __fish_use_subcommand -a list -d 'list the recordings, newest first'
complete -c tessivox -n __fish_use_subcommand -a show -d 'print a transcript or a summary'
complete -c tessivox -n __fish_use_subcommand -a rename -d 'give a recording another name'
complete -c tessivox -n __fish_use_subcommand -a trash -d 'move a recording to the trash'
complete -c tessivox -n __fish_use_subcommand -a recover -d 'finish recordings that were interrupted'
complete -c tessivox -n __fish_use_subcommand -a run -d 'stay ready in the background'
complete -c tessivox -n __fish_use_subcommand -a get -d 'print the settings'
complete -c tessivox -n __fish_use_subcommand -a set -d 'change a setting'
complete -c tessivox -n __fish_use_subcommand -a exclude -d 'the applications that are never taken for a call'
complete -c tessivox -n __fish_use_subcommand -a start -d 'let the program in the background record'
complete -c tessivox -n __fish_use_subcommand -a stop -d 'stop and save its recording'
complete -c tessivox -n __fish_use_subcommand -a pause -d 'pause its recording'
complete -c tessivox -n __fish_use_subcommand -a resume -d 'go on with its recording'
complete -c tessivox -n __fish_use_subcommand -a toggle -d 'start or stop, whichever is due'
complete -c tessivox -n __fish_use_subcommand -a status -d 'tell what it does'
complete -c tessivox -n __fish_use_subcommand -a usage -d 'tell how many transcriptions the server has left'
complete -c tessivox -n __fish_use_subcommand -a devices -d 'list the microphones'
complete -c tessivox -n __fish_use_subcommand -l version -d 'print the version'
complete -c tessivox -l verbose -d 'tell on standard error what happens inside'
complete -c tessivox -l help -d 'explain the command'
complete -c tessivox -l server -x -a 'https://' -d 'the server that transcribes'
complete -c tessivox -l ca-file -r -F -d 'certificates to trust too'

complete -c tessivox -n '__fish_seen_subcommand_from record' -l for -x -a '30s 5m 1h' -d 'stop after that much sound'
complete -c tessivox -n '__fish_seen_subcommand_from record' -l output -r -F -d 'name of the recording'
complete -c tessivox -n '__fish_seen_subcommand_from record' -l mic -x -a 'default none' -d 'microphone by its name or uid'
complete -c tessivox -n '__fish_seen_subcommand_from record' -l system -x -a 'on off' -d 'the computer\'s sound'
complete -c tessivox -n '__fish_seen_subcommand_from record' -l quality -x -a 'low medium high' -d '64, 128 or 256 kbit/s'
complete -c tessivox -n '__fish_seen_subcommand_from record' -l separate-tracks -d 'also save each source in a file of its own'
complete -c tessivox -n '__fish_seen_subcommand_from record' -l transcribe -d 'make the transcript afterwards'

complete -c tessivox -n '__fish_seen_subcommand_from transcribe' -l wait -d 'wait for the transcript in any case'

complete -c tessivox -n '__fish_seen_subcommand_from list' -l json -d 'print one JSON array'
complete -c tessivox -n '__fish_seen_subcommand_from show' -l summary -d 'the summary instead of the transcript'
complete -c tessivox -n '__fish_seen_subcommand_from show' -l format -x -a 'text md srt vtt json' -d 'how it is printed'
complete -c tessivox -n '__fish_seen_subcommand_from import transcribe summarize show rename trash' -F
set -l keys recordingsDirectory selectedMicrophoneID recordMicrophone recordSystemAudio audioQuality saveSeparateTracks showRecordingPrompt \
    autoStartRecording autoStopRecording autoTranscribe autoSummarize serverURL launchAtLogin showInDock analyticsEnabled
complete -c tessivox -n '__fish_seen_subcommand_from get' -a "$keys"
complete -c tessivox -n '__fish_seen_subcommand_from set' -a "$keys on off" -F
complete -c tessivox -n '__fish_seen_subcommand_from exclude; and not __fish_seen_subcommand_from list add remove' -a 'list add remove'
complete -c tessivox -n '__fish_seen_subcommand_from exclude' -l json -d 'print one JSON array'
complete -c tessivox -n '__fish_seen_subcommand_from exclude; and __fish_seen_subcommand_from add remove' -F
complete -c tessivox -n '__fish_seen_subcommand_from run' -l headless -d 'without windows and status icon'
complete -c tessivox -n '__fish_seen_subcommand_from devices' -l json -d 'print one JSON object'
complete -c tessivox -n '__fish_seen_subcommand_from status' -l json -d 'print one JSON object'
