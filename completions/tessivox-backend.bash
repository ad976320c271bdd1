# Completion of tessivox-backend for bash.

_tessivox_backend() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local -i index
    # The program behind --command has arguments of its own.
    for ((index = 1; index < COMP_CWORD; index++)); do
        if [[ ${COMP_WORDS[index]} == --command ]]; then
            compopt -o default 2>/dev/null
            if ((index + 1 == COMP_CWORD)); then mapfile -t COMPREPLY < <(compgen -c -- "$current"); fi
            return
        fi
    done

    local IFS=$' \t\n' words='' kind=''
    case $previous in
        --listen) words='127.0.0.1:0' ;;
        --tls-cert | --tls-key | --secret-file) kind=-f ;;
        --state) kind=-d ;;
        --engine) words='pocketsphinx command openai' ;;
        --openai-url | --chat-url) words='https:// http://127.0.0.1:' ;;
        --openai-format) words='verbose_json json diarized_json' ;;
        --host | --openai-model | --openai-language | --chat-model) ;;
        --max-upload | --max-queue | --max-jobs | --max-hours | --time-factor) ;;
        *)
            words='--inherited --listen --host --tls-cert --tls-key --secret-file --state --engine --openai-url
                --openai-model --openai-language --openai-format --chat-url --chat-model --max-upload --max-queue
                --max-jobs --max-hours --time-factor --verbose --testing --command --help --version'
            ;;
    esac

    COMPREPLY=()
    if [[ -n $kind ]]; then
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen "$kind" -- "$current")
    else
        mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
    fi
}

complete -F _tessivox_backend tessivox-backend
