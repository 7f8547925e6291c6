#!/bin/sh
# Regenerates the shipped detector and list files from synthetic corpora made
# by gazesynth with fixed seeds. The same build gives the same files.
#
#   tools/gazetrain/make-models.sh [BUILD_DIR [OUT_DIR]]
#
# BUILD_DIR holds bin/gazesynth and bin/gazetrain (default: build); OUT_DIR
# receives the files (default: etc/gaze). Training corpora go to a temporary
# directory that is removed afterwards. The settings below were chosen on a
# validation corpus (gazesynth --seed 202 --wearers 120 --minutes 30) that
# neither training nor the held-out evaluation uses.
set -eu

BUILD=${1:-build}
OUT=${2:-etc/gaze}
BIN=$BUILD/bin
THREADS=${THREADS:-2}
for tool in gazesynth gazetrain; do
    [ -x "$BIN/$tool" ] || { echo "make-models: $BIN/$tool is missing; build it first" >&2; exit 1; }
done

WORK=$(mktemp -d "${TMPDIR:-/tmp}/gaze-models.XXXXXX")
trap 'rm -rf "$WORK"' EXIT INT TERM
STAGE=$WORK/models
mkdir -p "$STAGE"

# Training corpora: 160 wearers of 30 minutes each, three times.
"$BIN/gazesynth" --seed 101 --wearers 160 --minutes 30 --out "$WORK/train-a" >/dev/null
"$BIN/gazesynth" --seed 111 --wearers 160 --minutes 30 --out "$WORK/train-b" >/dev/null
"$BIN/gazesynth" --seed 121 --wearers 160 --minutes 30 --out "$WORK/train-c" >/dev/null
ALL="--corpus $WORK/train-a --corpus $WORK/train-b --corpus $WORK/train-c"
ONE="--corpus $WORK/train-a"

train() {
    name=$1
    shift
    echo "make-models: training $name" >&2
    "$BIN/gazetrain" cascade --threads "$THREADS" --seed 1 --out "$STAGE/$name" "$@"
}

# Double blink: one cascade over the whole double blink, detected from just
# before its end to 200 ms after it. The layer count (and the one of the
# look-at-screen cascade) is the one that finds the most gestures of the
# validation corpus while its precision and false detections per hour stay
# within the goals.
train double_blink.txt $ALL --target double-blink --window 36 --pre-margin-ms 30 --layers 13 \
    --min-negatives 30 --max-weaks 80 --positives 12000 --negatives 12000

# Wink: one cascade per range of labelled wink durations (overlapping), with
# windows long enough for the library to measure the wink's duration.
train wink_300_480.txt $ONE --target wink --min-ms 300 --max-ms 480 --window 28 --layers 16 --min-negatives 30
train wink_420_640.txt $ONE --target wink --min-ms 420 --max-ms 640 --window 32 --layers 16 --min-negatives 30
train wink_580_800.txt $ONE --target wink --min-ms 580 --max-ms 800 --window 36 --layers 16 --min-negatives 30

# Look at screen: a rise of the level held for 650 to 900 ms; each layer
# keeps 99 % of the positives, which trades some recall of faint looks for
# far fewer false detections.
train look_at_screen.txt $ALL --target look-up --window 48 --band-from-ms 650 --band-to-ms 900 \
    --pre-margin-ms 150 --ignore-before-ms 300 --ignore-after-ms 400 --layer-detection 0.99 --layers 15 \
    --min-negatives 30 --max-weaks 80 --positives 12000 --negatives 12000

echo "make-models: writing the list files" >&2
"$BIN/gazetrain" set --out "$STAGE/two_blink_detector_set.txt" "$STAGE/double_blink.txt"
"$BIN/gazetrain" set --out "$STAGE/laser_detector_set.txt" "$STAGE/look_at_screen.txt"
"$BIN/gazetrain" wink-list --out "$STAGE/multi_dur_wink_detector.txt" $ONE \
    --detector "$STAGE/wink_300_480.txt:300:480" \
    --detector "$STAGE/wink_420_640.txt:420:640" \
    --detector "$STAGE/wink_580_800.txt:580:800"

mkdir -p "$OUT"
find "$OUT" -maxdepth 1 -name '*.txt' -delete
cp "$STAGE"/*.txt "$OUT"/
echo "make-models: wrote $(ls "$STAGE" | wc -l) files to $OUT" >&2
