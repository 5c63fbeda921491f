#!/usr/bin/env bash
# Takes the screenshots of the uninstaller kept in docs/: the staged program itself, run
# from a throw-away sandbox in a private X server, its buttons pressed by xdotool.
#   tools/screenshots.sh [--out DIR] [--lang "en de"] <build dir>
# For each language: uninstaller-start, -details (the start page with its details open, for
# a home with the product's caches, preferences and launch agent), -progress, -done and
# -error (an entry of the data folder that cannot be deleted, "Permission denied", in a
# home folder deep enough that the lines are shortened), named uninstaller-<page>.png for English
# and uninstaller-<page>-<lang>.png otherwise. Languages: en and those staged (de fr es
# it ja). Needs Xvfb, xdotool and ImageMagick's import (tools/install-deps).
#
# Safety, as in tools/demo: the sandbox has its own HOME, tools/sandbox-bin goes first on
# PATH, so the removal script deletes nothing outside the sandbox. It runs as root only:
# administrator rights come first in a run, and as anybody else pkexec would ask for a
# password before the progress page shows. The uninstaller stops the first process
# called Brisvane it finds: the script waits until none but its own runs.
set -euo pipefail
repo=$(cd "$(dirname "$0")/.." && pwd)
out=$repo/docs
languages="en de"
while [ $# -gt 1 ]; do
    case "$1" in
        --out) out=$2; shift 2 ;;
        --lang) languages=$2; shift 2 ;;
        *) break ;;
    esac
done
[ $# -eq 1 ] || { echo "usage: tools/screenshots.sh [--out DIR] [--lang \"en de\"] <build dir>" >&2; exit 2; }
stage=$(cd "$1" && pwd)/stage/Brisvane
# Root may delete anything: the fault injector refuses the one entry, as the system would.
faultinject=$(cd "$1" && pwd)/tests/fsapi/faultinject/libbv_faultinject.so
[ -x "$stage/Brisvane.app/Contents/MacOS/UnInstallerMac" ] || {
    echo "no staged program in $1: build the target stage first" >&2
    exit 1
}
[ "$(id -u)" -eq 0 ] || { echo "run as root (see the comment at the top)" >&2; exit 1; }
for tool in Xvfb xdotool import; do
    command -v $tool >/dev/null || { echo "$tool is missing (tools/install-deps installs it)" >&2; exit 1; }
done
mkdir -p "$out"
out=$(cd "$out" && pwd)

work=$(mktemp -d "${TMPDIR:-/tmp}/brisvane-shots.XXXXXX")
work=$(cd "$work" && pwd -P)
xvfb_pid=""
pids=()
cleanup() {
    local pid
    for pid in "${pids[@]}" $xvfb_pid; do
        kill "$pid" 2>/dev/null && wait "$pid" 2>/dev/null || true
    done
    rm -rf "$work"
}
trap cleanup EXIT

# -displayfd picks a free display and writes its number once the server is ready.
Xvfb -displayfd 3 -screen 0 800x600x24 -nolisten tcp 3>"$work/display" 2>/dev/null &
xvfb_pid=$!
for _ in $(seq 1 150); do [ -s "$work/display" ] && break; sleep 0.1; done
[ -s "$work/display" ] || { echo "Xvfb did not start" >&2; exit 1; }
export DISPLAY=":$(tr -d '[:space:]' <"$work/display")" QT_QPA_PLATFORM=xcb

# Waits up to $2 tenths of a second for the command $1 to succeed.
wait_for() {
    local i
    for i in $(seq 1 "$2"); do
        if eval "$1"; then return 0; fi
        sleep 0.1
    done
    echo "gave up waiting for: $1" >&2
    return 1
}

# A fresh sandbox in $work/$1 with the installed product, key files and configuration;
# $2 is the HOME inside it. Sets sandbox, home, program.
make_sandbox() {
    sandbox=$work/$1
    home=$sandbox/$2
    mkdir -p "$sandbox/Applications" "$sandbox/runtime" "$home/.bv2/pss" \
        "$home/.bv2/server_access_keys" "$home/.config/Brisvane" "$home/Documents"
    chmod 700 "$sandbox/runtime"
    echo "private key of this device" >"$home/.bv2/pss/identity.key"
    echo "access key" >"$home/.bv2/server_access_keys/brisvane.example.key"
    printf '[General]\nlanguage=en\n' >"$home/.config/Brisvane/Brisvane.conf"
    cp -al "$stage" "$sandbox/Applications/"
    program=$sandbox/Applications/Brisvane/Brisvane.app/Contents/MacOS/UnInstallerMac
}

# Starts the uninstaller of the current sandbox in language $1; sets pid and window.
start_uninstaller() {
    local locale=C
    [ "$1" = en ] || locale="${1}_$(echo "$1" | tr '[:lower:]' '[:upper:]').UTF-8"
    [ "$1" != ja ] || locale=ja_JP.UTF-8
    (
        cd "$sandbox"
        export HOME=$home XDG_CONFIG_HOME=$home/.config XDG_CACHE_HOME=$home/.cache \
            XDG_DATA_HOME=$home/.local/share XDG_STATE_HOME=$sandbox/state \
            XDG_RUNTIME_DIR=$sandbox/runtime BV_SANDBOX=$sandbox \
            PATH="$repo/tools/sandbox-bin:$PATH"
        [ -z "${preload:-}" ] || export LD_PRELOAD=$preload BV_FAULT_UNLINK=settings.db
        exec env LANG="$locale" LC_ALL="$locale" "$program" 2>"$sandbox/stderr.log"
    ) &
    pid=$!
    pids+=("$pid")
    window=$(timeout 20 xdotool search --sync --onlyvisible --pid "$pid" | head -1)
    [ -n "$window" ] || { echo "the uninstaller window did not appear" >&2; exit 1; }
    sleep 0.5
}

# The buttons sit at the right end of the bottom strip of the fixed 410x332 window:
# Uninstall left of Cancel, and Close alone in Cancel's place after success.
press_uninstall() { xdotool mousemove --window "$window" 250 312 click 1; }
# Show Details stands under the check box; open, the window is 190 pixels taller.
press_details() { xdotool mousemove --window "$window" 110 246 click 1; }
press_cancel_or_close() {
    xdotool mousemove --window "$window" 352 312 click 1
    wait_for "! kill -0 $pid 2>/dev/null" 50
    wait "$pid" 2>/dev/null || true
}
shoot() {
    import -window "$window" "$out/uninstaller-$1$suffix.png"
    echo "$out/uninstaller-$1$suffix.png"
}
log_shows() { grep -qF "$1" "$sandbox/state/Brisvane/Uninstaller.log" 2>/dev/null; }
run_ended() { log_shows 'Thread ( 1 "Uninstall" ) unregistering'; }

wait_for "! pgrep -x Brisvane >/dev/null" 600

for lang in $languages; do
    suffix=""
    [ "$lang" = en ] || suffix="-$lang"

    # Start, progress and done. The product is a copy of the shell called Brisvane that
    # takes four seconds to end once asked to: the window shows its progress meanwhile.
    make_sandbox "run-$lang" home
    cp /bin/sh "$sandbox/Brisvane"
    (cd "$sandbox" && exec ./Brisvane -c 'trap "sleep 4; exit 0" TERM; while :; do sleep 0.1; done') &
    product=$!
    pids+=("$product")
    start_uninstaller "$lang"
    shoot start
    press_uninstall
    wait_for "log_shows 'kill pid:$product signal:15 '" 200
    sleep 0.5
    shoot progress
    wait_for "run_ended" 600
    sleep 0.5
    shoot done
    wait "$product" 2>/dev/null || true
    press_cancel_or_close

    # The details, in a home that holds some of everything the product leaves there, and a
    # package receipt. Sizes are what the file system reports, so sparse files will do.
    make_sandbox "details-$lang" home
    library=$home/Library
    mkdir -p "$library/Caches/Brisvane/thumbnails" "$library/Preferences" "$library/LaunchAgents" \
        "$library/Application Support/Brisvane" "$library/Saved Application State/com.brisvane.Brisvane.savedState"
    truncate -s 412M "$library/Caches/Brisvane/thumbnails/previews.db"
    truncate -s 3M "$library/Caches/Brisvane/index.db"
    truncate -s 18K "$library/Preferences/com.brisvane.Brisvane.plist"
    truncate -s 1K "$library/LaunchAgents/com.brisvane.updater.plist"
    truncate -s 96M "$library/Application Support/Brisvane/spaces.db"
    truncate -s 6K "$library/Saved Application State/com.brisvane.Brisvane.savedState/windows.plist"
    truncate -s 2G "$home/.bv2/spaces.db"
    echo com.brisvane.pkg.Brisvane >"$sandbox/receipts"
    start_uninstaller "$lang"
    press_details
    sleep 1
    shoot details
    press_details
    press_cancel_or_close

    # The error strip: a file in the data folder that may not be deleted, in a deep home.
    make_sandbox "error-$lang" "Users/$(printf 'a%.0s' $(seq 1 40))/$(printf 'b%.0s' $(seq 1 40))"
    mkdir "$home/.bv2/not-yours"
    echo >"$home/.bv2/not-yours/settings.db"
    preload=$faultinject start_uninstaller "$lang"
    press_uninstall
    wait_for "run_ended" 600
    sleep 1 # the strip slides open
    shoot error
    press_cancel_or_close
done
