#!/usr/bin/env bash
# Instructions per sample through each gesture module's detection path with
# the shipped detector files, counted by callgrind (deterministic: the same
# build gives the same figure on any machine).
#
#   bench/e2e/instructions.sh [BUILD_DIR]
set -euo pipefail
build=${1:-build}
driver=$build/bin/bench_e2e_path
[ -x "$driver" ] || { echo "instructions.sh: $driver is missing (build the bench_e2e_path target)" >&2; exit 1; }
command -v valgrind >/dev/null || { echo "instructions.sh: valgrind is not installed (scripts/install-deps)" >&2; exit 1; }
tmp=$(mktemp -d /tmp/velto-callgrind-XXXXXX)
trap 'rm -rf "$tmp"' EXIT

echo "| Module | Samples streamed | Received by the module | Instructions per streamed sample | per received sample | Heap allocations after 10 s |"
echo "|---|---|---|---|---|---|"
for module in double-blink look-at-screen wink; do
  out=$tmp/$module.out
  valgrind --tool=callgrind --collect-atstart=no --callgrind-out-file="$out" \
      "$driver" --module "$module" >"$tmp/$module.txt" 2>"$tmp/$module.err" \
    || { echo "instructions.sh: $module failed:" >&2; cat "$tmp/$module.err" >&2; exit 1; }
  read -r _ streamed received _ allocations <"$tmp/$module.txt"
  total=$(awk '/^(summary|totals):/ {print $2; exit}' "$out")
  awk -v m="$module" -v s="$streamed" -v r="$received" -v t="$total" -v a="$allocations" \
    'BEGIN { printf "| %s | %d | %d | %.0f | %.0f | %d |\n", m, s, r, t / s, (r > 0 ? t / r : 0), a }'
done
