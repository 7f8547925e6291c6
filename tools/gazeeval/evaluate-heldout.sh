#!/bin/sh
# Scores the detector files on the held-out corpus: wearers of a seed (404)
# that neither training (101, 111, 121) nor model selection (202) used, drawn
# across every variant of the signal model, and on the real recordings in
# testdata/real-blinks, each reported as its own section: one person's long,
# slow, very long and partial blinks and squints, and twelve people's natural
# blinking (also used for training negatives, so not a held-out figure).
# The corpus is made on first use and kept for later runs.
#
#   tools/gazeeval/evaluate-heldout.sh [BUILD_DIR [MODELS_DIR]] [-- GAZEEVAL_OPTIONS...]
#
# HELDOUT_DIR names the corpus directory (default: $TMPDIR/gaze-heldout-404).
set -eu

BUILD=build
MODELS=etc/gaze
[ $# -gt 0 ] && [ "$1" != "--" ] && { BUILD=$1; shift; }
[ $# -gt 0 ] && [ "$1" != "--" ] && { MODELS=$1; shift; }
[ $# -gt 0 ] && [ "$1" = "--" ] && shift
CORPUS=${HELDOUT_DIR:-${TMPDIR:-/tmp}/gaze-heldout-404}
REAL=$(cd "$(dirname "$0")/../.." && pwd)/testdata/real-blinks

if [ ! -f "$CORPUS/wearers.info" ]; then
    "$BUILD/bin/gazesynth" --seed 404 --wearers 90 --minutes 30 --out "$CORPUS" >/dev/null
fi
exec "$BUILD/bin/gazeeval" --corpus "$CORPUS" --section "$REAL" --section "$REAL/natural" --models "$MODELS" \
    --json "$@"
