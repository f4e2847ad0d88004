#!/usr/bin/env bash
# scripts/desktop-entry installs an entry that desktop-file-validate accepts, with its icons,
# and uninstall takes everything away again. Runs in a scratch data folder.
set -euo pipefail
root="$1"
export XDG_DATA_HOME="$(mktemp -d)"
export XDG_CONFIG_HOME="$(mktemp -d)"
trap 'rm -rf "$XDG_DATA_HOME" "$XDG_CONFIG_HOME"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

bash "$root/scripts/desktop-entry" install /bin/true >/dev/null
entry="$XDG_DATA_HOME/applications/solvanta.desktop"
[ -f "$entry" ] || fail "no entry at $entry"
desktop-file-validate "$entry" || fail "desktop-file-validate refused the entry"
grep -qx 'Exec=/bin/true %u' "$entry" || fail "the entry does not run the program it was given with the URL"
grep -qx 'MimeType=x-scheme-handler/solvanta;' "$entry" || fail "the entry does not handle solvanta: URLs"
if command -v xdg-mime >/dev/null; then
  [ "$(xdg-mime query default x-scheme-handler/solvanta)" = solvanta.desktop ] ||
    fail "solvanta.desktop is not the handler of solvanta: URLs"
fi
for size in 48 64 128 256; do
  [ -s "$XDG_DATA_HOME/icons/hicolor/${size}x${size}/apps/solvanta.png" ] || fail "no ${size}px icon"
done
if bash "$root/scripts/desktop-entry" install relative/path >/dev/null 2>&1; then fail "a relative program was accepted"; fi

bash "$root/scripts/desktop-entry" uninstall >/dev/null
[ ! -e "$entry" ] || fail "the entry is still there"
[ -z "$(find "$XDG_DATA_HOME/icons" -name solvanta.png)" ] || fail "an icon is still there"
echo "desktop entry: installed, valid, removed"
