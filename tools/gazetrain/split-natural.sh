#!/bin/sh
# Splits the twelve-person natural-blinking set by person, with symbolic
# links: people 1 to 8 go to TRAIN_DIR (training negatives of the cascades),
# people 9 to 12 to HELDOUT_DIR (whom no model is trained or chosen on).
#
#   tools/gazetrain/split-natural.sh NATURAL_DIR TRAIN_DIR HELDOUT_DIR
set -eu
[ $# -eq 3 ] || { echo "usage: split-natural.sh NATURAL_DIR TRAIN_DIR HELDOUT_DIR" >&2; exit 2; }
SRC=$(cd "$1" && pwd)
mkdir -p "$2" "$3"
found=0
for f in "$SRC"/natural-p*.txt; do
    base=$(basename "$f" .txt)
    person=${base#natural-p}
    person=${person%%-*}
    case $person in
        [1-8]) dir=$2 ;;
        9 | 1[0-2]) dir=$3 ;;
        *) echo "split-natural.sh: $f: unknown person $person" >&2; exit 1 ;;
    esac
    ln -sf "$f" "$dir/$base.txt"
    ln -sf "$SRC/$base.labels" "$dir/$base.labels"
    found=$((found + 1))
done
[ "$found" -gt 0 ] || { echo "split-natural.sh: no recordings in $SRC" >&2; exit 1; }
