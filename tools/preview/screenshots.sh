#!/usr/bin/env bash
# Takes the screenshots of the uninstaller window kept in docs/, in a private X server.
#   tools/preview/screenshots.sh <build dir> [<output dir>]
# Needs xvfb-run and ImageMagick's import (tools/install-deps installs both).
set -euo pipefail
build=$(cd "$1" && pwd)
out=${2:-$(cd "$(dirname "$0")/../.." && pwd)/docs}
preview=$build/tools/preview/bv_uninstaller_preview
[ -x "$preview" ] || { echo "build bv_uninstaller_preview first" >&2; exit 1; }
mkdir -p "$out"

if [ -z "${BV_IN_XVFB:-}" ]; then
    # A private HOME: nothing the toolkit writes may land in the real one.
    home=$(mktemp -d)
    trap 'rm -rf "$home"' EXIT
    mkdir -m 700 "$home/runtime"
    HOME=$home XDG_RUNTIME_DIR=$home/runtime XDG_CONFIG_HOME=$home/.config \
        XDG_CACHE_HOME=$home/.cache BV_IN_XVFB=1 xvfb-run -a -s "-screen 0 800x600x24" "$0" "$build" "$out"
    exit
fi

shot() {
    local name=$1; shift
    local fifo pid id
    fifo=$(mktemp -u); mkfifo "$fifo"
    QT_QPA_PLATFORM=xcb "$preview" --quit-after 20000 "$@" >"$fifo" &
    pid=$!
    read -r _ id <"$fifo"
    rm -f "$fifo"
    import -window "$id" "$out/$name.png"
    kill "$pid"; wait "$pid" || true
    echo "$out/$name.png"
}

shot uninstaller-start --page start
shot uninstaller-error --page error --message "Unable to uninstall Brisvane"
shot uninstaller-progress --page progress --progress 50
shot uninstaller-done --page done
shot uninstaller-error-de --page error --lang de --arg "/Users/anna/.config/Brisvane" \
    --message "Failed to delete %1.
Please delete by yourself."
