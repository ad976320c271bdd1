# Completion of tessivox for bash.

_tessivox() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} command='' word
    local -i index
    for ((index = 1; index < COMP_CWORD; index++)); do
        word=${COMP_WORDS[index]}
        if [[ $word != -* ]]; then
            command=$word
            break
        fi
    done

    local IFS=$' \t\n' words='' files='' network='--server --ca-file'
    local keys='recordingsDirectory selectedMicrophoneID recordMicrophone recordSystemAudio audioQuality saveSeparateTracks showRecordingPrompt autoStartRecording
        autoStopRecording autoTranscribe autoSummarize serverURL launchAtLogin showInDock analyticsEnabled'
    case $command:$previous in
        record:--for) words='30s 5m 1h' ;;
        record:--output) files=1 ;;
        record:--mic) words='default none' ;;
        record:--system) words='on off' ;;
        record:--quality) words='low medium high' ;;
        *:--ca-file) files=1 ;;
        *:--server) words='https:// http://127.0.0.1:' ;;
        record:*) words="--for --output --mic --system --quality --separate-tracks --transcribe $network --verbose --help" ;;
        transcribe:*) words="--wait $network --verbose --help" files=1 ;;
        import:*) words="$network --verbose --help" files=1 ;;
        summarize:*) words="$network --verbose --help" files=1 ;;
        usage:*) words="$network --verbose --help" ;;
        list:*) words='--json --verbose --help' ;;
        show:--format) words='text md srt vtt json' ;;
        show:*) words='--summary --format --verbose --help' files=1 ;;
        rename:* | trash:*) words='--verbose --help' files=1 ;;
        recover:*) words='--verbose --help' ;;
        run:*) words="--headless $network --verbose --help" ;;
        start:* | stop:* | pause:* | resume:* | toggle:*) words='--verbose --help' ;;
        status:*) words='--json --verbose --help' ;;
        devices:*) words='--json --verbose --help' ;;
        get:*) words="$keys --verbose --help" ;;
        set:audioQuality) words='low medium high' ;;
        set:selectedMicrophoneID) words='default' ;;
        set:recordingsDirectory) files=1 ;;
        set:serverURL) words='https:// http://127.0.0.1:' ;;
        set:set) words="$keys --verbose --help" ;;
        set:*) words='on off --verbose --help' ;;
        exclude:exclude) words='list add remove --json --verbose --help' ;;
        exclude:*) words='--json --verbose --help' files=1 ;;
        :*) words="record import transcribe summarize list show rename trash recover run start stop pause resume toggle status get set exclude usage devices --version $network --verbose --help" ;;
    esac

    COMPREPLY=()
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
    if [[ -n $files && $current != -* ]]; then
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
    fi
}

complete -F _tessivox tessivox
