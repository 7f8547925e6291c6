#!/usr/bin/env bash
# Installs the build into a fresh prefix and uses it as an outsider would:
# every program runs from / with no LD_LIBRARY_PATH, the shipped detector files
# and firmware are in share/veltogaze, the installed simulator serves them, and
# a one-file client compiles and links with pkg-config and gets an event.
#
#   install-and-build-client.sh BUILD_DIR CLIENT_SOURCE CXX
set -euo pipefail
build=$(cd "$1" && pwd)
client_src=$(cd "$(dirname "$2")" && pwd)/$(basename "$2")
cxx=${3:-c++}

work=$(mktemp -d /tmp/veltogaze-install-XXXXXX)
sim_pid=""
cleanup() {
  if [ -n "$sim_pid" ] && kill -0 "$sim_pid" 2>/dev/null; then
    kill -TERM "$sim_pid"
    wait "$sim_pid" 2>/dev/null || true
  fi
  rm -rf "$work"
}
trap cleanup EXIT
fail() { echo "install test: $*" >&2; exit 1; }

prefix="$work/prefix"
cmake --install "$build" --prefix "$prefix" > "$work/install.log" || { cat "$work/install.log" >&2; fail "cmake --install failed"; }

for p in veltohub-sim gazectl gazesynth gazetrain gazeeval; do
  [ -x "$prefix/bin/$p" ] || fail "$p is not installed"
  (cd / && env -u LD_LIBRARY_PATH "$prefix/bin/$p" --help > /dev/null) || fail "$prefix/bin/$p --help does not run from /"
  readelf -d "$prefix/bin/$p" | grep -q 'RUNPATH.*\$ORIGIN/\.\./lib' || fail "$p has no RUNPATH relative to itself"
done
for lib in libveltogaze.so libveltoutils.so libhardware_legacy.so; do
  [ -e "$prefix/lib/$lib" ] || fail "$lib is not installed"
done
for f in two_blink_detector_set.txt multi_dur_wink_detector.txt laser_detector_set.txt; do
  [ -s "$prefix/share/veltogaze/gaze/$f" ] || fail "detector list $f is not installed"
done
[ -s "$prefix/share/veltogaze/firmware/veltohub.s19" ] || fail "the firmware image is not installed"
[ -s "$prefix/include/veltogaze/service/GazeServiceInterface.h" ] || fail "headers are not installed"
[ -s "$prefix/lib/pkgconfig/veltogaze.pc" ] || fail "veltogaze.pc is not installed"

# The installed gazeeval finds the installed detector files by itself: a
# missing corpus is the only complaint.
(cd / && "$prefix/bin/gazeeval" --corpus "$work/none" 2> "$work/eval.err") && fail "gazeeval accepted a missing corpus"
grep -q "$work/none" "$work/eval.err" || { cat "$work/eval.err" >&2; fail "gazeeval did not get as far as the corpus"; }

# A marker among the installed detector files shows that the installed
# simulator copies these, not the source tree's.
echo "# marker" > "$prefix/share/veltogaze/gaze/install_marker.txt"
root="$work/root"
(cd / && exec env -u LD_LIBRARY_PATH "$prefix/bin/veltohub-sim" --root "$root" --ready-fd 3 \
  3> "$work/ready" 2> "$work/sim.log") &
sim_pid=$!
for _ in $(seq 1 600); do
  grep -q ready "$work/ready" 2>/dev/null && break
  kill -0 "$sim_pid" 2>/dev/null || { cat "$work/sim.log" >&2; fail "the installed simulator did not start"; }
  sleep 0.05
done
grep -q ready "$work/ready" || fail "the installed simulator was not ready within 30 s"
[ -e "$root/system/etc/gaze/install_marker.txt" ] || fail "the installed simulator did not copy the installed detector files"
cmp -s "$root/system/vendor/firmware/veltohub.s19" "$prefix/share/veltogaze/firmware/veltohub.s19" ||
  fail "the installed simulator did not ship the installed firmware image"

export PKG_CONFIG_PATH="$prefix/lib/pkgconfig"
[ "$(pkg-config --variable=prefix veltogaze)" = "$prefix" ] || fail "veltogaze.pc names another prefix"
# shellcheck disable=SC2046
"$cxx" -std=c++17 -Wall -Werror -o "$work/client" "$client_src" $(pkg-config --cflags --libs veltogaze) ||
  fail "the client does not build with pkg-config"
out=$(cd / && env -u LD_LIBRARY_PATH "$work/client" "$root") || fail "the client did not get its event (output: $out)"
[ "$out" = "DON" ] || fail "unexpected client output: $out"
echo "install test: programs, data, headers, pkg-config and a client all work from $prefix"
