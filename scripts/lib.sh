# Shared by the scripts in this folder; source it. Needs bash, and nothing that a minimal Debian 12 lacks.

set -euo pipefail

invokedFrom=$PWD
cd "$(dirname "${BASH_SOURCE[0]}")/.."
export LC_ALL=C.UTF-8 HOME="${HOME:-/root}"

step() { printf '== %s\n' "$*" >&2; }
fail() {
    printf '%s: %s\n' "$(basename "$0")" "$*" >&2
    exit 1
}

# lockCheckout: one script at a time builds in this checkout. The lock ends with the script, or with unlockCheckout.
lockCheckout() {
    mkdir -p build
    exec 9>build/.lock
    flock --nonblock 9 && return
    step "another script is building here; waiting for it"
    flock --timeout 1800 9 || fail "the other script still runs after 30 minutes. End it, then start again."
}
unlockCheckout() { exec 9>&-; }

# packagesOf GROUP...: the packages of these groups of packages.txt, or of all groups without arguments.
packagesOf() {
    local line group='' wanted="|$(IFS='|' && printf '%s' "$*")|"
    while read -r line; do
        case $line in
            '## '*) group=${line#'## '} ;;
            '' | '#'*) ;;
            *) [[ $# -eq 0 || $wanted == *"|$group|"* ]] && printf '%s\n' "$line" ;;
        esac
    done <scripts/packages.txt
    return 0
}

# missingPackages NAME...: those that are not installed.
missingPackages() {
    comm -23 <(printf '%s\n' "$@" | sort -u) \
        <(dpkg-query -W -f='${db:Status-Status} ${Package}\n' "$@" 2>/dev/null | sed -n 's/^installed //p' | sort -u)
}

asRoot() {
    if [[ $(id -u) -eq 0 ]]; then
        "$@"
    elif command -v sudo >/dev/null; then
        sudo "$@"
    else
        fail "packages are missing, and installing them needs root. Start this script as root, or install sudo. \
Missing: ${missing[*]}"
    fi
}

# aptGet LOG ARGS...: apt-get whose output is kept; tried three times, since mirrors and locks have bad moments.
aptGet() {
    local log=$1 try
    shift
    for try in 1 2 3; do
        asRoot env DEBIAN_FRONTEND=noninteractive apt-get -qq -o DPkg::Lock::Timeout=300 -o Acquire::Retries=3 "$@" \
            >>"$log" 2>&1 </dev/null 9>&- && return
        [[ $try -eq 3 ]] || sleep 5
    done
    return 1
}

# ensurePackages GROUP...: installs what is missing of these groups; a fraction of a second when nothing is.
ensurePackages() {
    command -v dpkg-query >/dev/null ||
        fail "this machine is not Debian. Install the counterparts of scripts/packages.txt, then use cmake --preset release."
    local missing log name unknown=()
    mapfile -t missing < <(missingPackages $(packagesOf "$@"))
    [[ ${#missing[@]} -eq 0 ]] && return
    log=build/packages.log
    : >"$log"
    step "installing ${#missing[@]} packages: ${missing[*]}"
    aptGet "$log" update || aptFailed "$log" "the package lists could not be fetched. Check the network connection"
    for name in "${missing[@]}"; do
        [[ -n $(apt-cache show --no-all-versions "$name" 2>/dev/null) ]] || unknown+=("$name")
    done
    [[ ${#unknown[@]} -eq 0 ]] ||
        fail "this machine's package sources do not have: ${unknown[*]}. Debian 12 does: check /etc/apt/sources.list."
    aptGet "$log" install --no-install-recommends --no-remove -y "${missing[@]}" ||
        aptFailed "$log" "packages could not be installed. Check the network and the free disk space"
    mapfile -t missing < <(missingPackages "${missing[@]}")
    [[ ${#missing[@]} -eq 0 ]] || aptFailed "$log" "still missing after the installation: ${missing[*]}. See what apt says"
}

aptFailed() {
    tail -n 15 "$1" >&2
    fail "$2, then start again. (The lines above are the end of $1.)"
}

# quietly LOG COMMAND...: runs it silently; shows the end of what it said only if it fails.
quietly() {
    local log=$1
    shift
    mkdir -p "$(dirname "$log")"
    "$@" >"$log" 2>&1 </dev/null 9>&- && return
    tail -n 60 "$log" >&2
    printf '%s: failed: %s\n(all of its output: %s)\n' "$(basename "$0")" "$*" "$log" >&2
    return 1
}

# buildPreset NAME [cmake --build options]: configures when needed, and builds.
buildPreset() {
    local preset=$1
    shift
    step "building $preset"
    if [[ ! build/$preset/build.ninja -nt CMakePresets.json ]]; then
        quietly "build/$preset.configure.log" "${fixedAddresses[@]}" cmake --preset "$preset" || return 1
    fi
    quietly "build/$preset.build.log" "${fixedAddresses[@]}" cmake --build --preset "$preset" "$@"
}

# The sanitizers of g++ 12 cannot start where the kernel spreads addresses over more bits than they know.
fixedAddresses=()
if setarch -R true 2>/dev/null; then fixedAddresses=(setarch -R); fi

export CCACHE_MAXSIZE="${CCACHE_MAXSIZE:-5G}"
