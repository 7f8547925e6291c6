#!/bin/sh
# Scores the detector files on the held-out corpus: wearers and recordings of
# a seed (303) that neither training (101, 111) nor model selection (202)
# used. The corpus is made on first use and kept for later runs.
#
#   tools/gazeeval/evaluate-heldout.sh [BUILD_DIR [MODELS_DIR]] [-- GAZEEVAL_OPTIONS...]
#
# HELDOUT_DIR names the corpus directory (default: $TMPDIR/gaze-heldout-303).
set -eu

BUILD=build
MODELS=etc/gaze
[ $# -gt 0 ] && [ "$1" != "--" ] && { BUILD=$1; shift; }
[ $# -gt 0 ] && [ "$1" != "--" ] && { MODELS=$1; shift; }
[ $# -gt 0 ] && [ "$1" = "--" ] && shift
CORPUS=${HELDOUT_DIR:-${TMPDIR:-/tmp}/gaze-heldout-303}

if [ ! -f "$CORPUS/wearers.info" ]; then
    "$BUILD/bin/gazesynth" --seed 303 --wearers 80 --minutes 30 --out "$CORPUS" >/dev/null
fi
exec "$BUILD/bin/gazeeval" --corpus "$CORPUS" --models "$MODELS" --json "$@"
