#!/usr/bin/env bash
# Installs the build into a temporary prefix, moves the prefix, and checks
# that the moved pxhost loads the moved modules: the plug-in's (the dynamic
# loader's own log names the files it opened) and, in the renderer child, the
# document renderers' (its memory map shows them while it renders: the
# confined child neither keeps the log's descriptor nor may write a log of
# its own). Then the moved plug-in module is taken away: pxhost must fail
# rather than fall back to the build tree's.
set -euo pipefail
cmake=$1 build=$2 sxf=$3
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

"$cmake" --install "$build" --prefix "$tmp/first" >"$tmp/install.log"
grep -qxF "  update-mime-database $tmp/first/share/mime" "$tmp/install.log" ||
  { echo "install did not print the update-mime-database line"; cat "$tmp/install.log"; exit 1; }

mv "$tmp/first" "$tmp/moved"
modules=$tmp/moved/lib/qlformat
# A page with no embedded preview, padded past the 512 bytes the plug-in
# classifies a document from, so that it is rendered.
{
  printf '%%!PS-Adobe-3.0\n%%%%BoundingBox: 0 0 40 20\n%%%%EndComments\n'
  for _ in $(seq 10); do echo "% padding: the page is classified from its first 512 bytes"; done
  printf '1 0 0 setrgbcolor 0 0 40 20 rectfill showpage\n'
} >"$tmp/page.ps"

loaded() {  # the real paths of the qlformat modules the loader logs show opened
  cat "$tmp"/ld.* | grep -o 'file=[^ ]*qlformat[-a-z]*\.so' | sed 's/^file=//' | xargs -r realpath | sort -u
}
want=$(realpath "$modules/qlformat.so")

LD_DEBUG=files LD_DEBUG_OUTPUT="$tmp/ld" "$tmp/moved/bin/pxhost" thumbnail -s 32 "$tmp/page.ps" "$tmp/page.png" ||
  { echo "moved pxhost failed"; exit 1; }
[ "$(loaded)" = "$want" ] || { echo "moved pxhost loaded:"; loaded; echo "instead of:"; echo "$want"; exit 1; }

# A page that never ends keeps the renderer child alive to be looked at.
sed 's/rectfill showpage/rectfill { } loop/' "$tmp/page.ps" >"$tmp/loop.ps"
"$tmp/moved/bin/pxhost" thumbnail --time-limit 20 "$tmp/loop.ps" "$tmp/loop.png" 2>/dev/null &
parent=$!
mapped=""
for _ in $(seq 200); do
  for child in $(pgrep -P "$parent" || true); do
    mapped=$(grep -o '/[^ ]*qlformat-render\.so' "/proc/$child/maps" 2>/dev/null | head -1 || true)
  done
  [ -n "$mapped" ] && break
  sleep 0.05
done
kill "$parent"
wait "$parent" || true
[ "$(realpath "${mapped:-/nonexistent}" 2>/dev/null)" = "$(realpath "$modules/qlformat-render.so")" ] ||
  { echo "the moved renderer child mapped '${mapped}' instead of $modules/qlformat-render.so"; exit 1; }

rm "$modules/qlformat.so"
if "$tmp/moved/bin/pxhost" identify "$sxf" >/dev/null 2>&1; then
  echo "pxhost without its module still ran (it found another one)"
  exit 1
fi
