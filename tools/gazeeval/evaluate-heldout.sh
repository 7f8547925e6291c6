#!/bin/sh
# Scores the detector files on the held-out corpus: wearers of a seed (505 by
# default) that neither training (101, 111, 121) nor model selection (202)
# used, drawn across every variant of the signal model, and on the real
# recordings in testdata/real-blinks, each reported as its own section:
# - one person's long, slow, very long and partial blinks and squints;
# - the natural blinking of people 9 to 12 of the twelve-person set, whom no
#   model was trained or chosen on (the natural-blinking figure that counts);
# - the natural blinking of people 1 to 8, the double-blink and look-at-screen
#   cascades' training negatives (an optimistic figure, for comparison).
# The corpus is made on first use and kept for later runs.
#
#   tools/gazeeval/evaluate-heldout.sh [BUILD_DIR [MODELS_DIR]] [-- GAZEEVAL_OPTIONS...]
#
# HELDOUT_SEED picks the seed (default 505; 404 is the corpus of earlier
# reports), HELDOUT_DIR the corpus directory (default:
# $TMPDIR/gaze-heldout-SEED).
set -eu

BUILD=build
MODELS=etc/gaze
[ $# -gt 0 ] && [ "$1" != "--" ] && { BUILD=$1; shift; }
[ $# -gt 0 ] && [ "$1" != "--" ] && { MODELS=$1; shift; }
[ $# -gt 0 ] && [ "$1" = "--" ] && shift
SEED=${HELDOUT_SEED:-505}
CORPUS=${HELDOUT_DIR:-${TMPDIR:-/tmp}/gaze-heldout-$SEED}
SCRIPTS=$(cd "$(dirname "$0")" && pwd)
REAL=$SCRIPTS/../../testdata/real-blinks
REAL=$(cd "$REAL" && pwd)

if [ ! -f "$CORPUS/wearers.info" ]; then
    "$BUILD/bin/gazesynth" --seed "$SEED" --wearers 90 --minutes 30 --out "$CORPUS" >/dev/null
fi
SPLIT=$(mktemp -d "${TMPDIR:-/tmp}/gaze-natural.XXXXXX")
trap 'rm -rf "$SPLIT"' EXIT INT TERM
"$SCRIPTS/../gazetrain/split-natural.sh" "$REAL/natural" "$SPLIT/natural-people-1-8-training" \
    "$SPLIT/natural-people-9-12-heldout"
"$BUILD/bin/gazeeval" --corpus "$CORPUS" --section "$REAL" --section "$SPLIT/natural-people-9-12-heldout" \
    --section "$SPLIT/natural-people-1-8-training" --models "$MODELS" --json "$@"
