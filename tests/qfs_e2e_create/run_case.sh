#!/bin/sh
# One end-to-end case of the file and link built-ins. Builds a small project tree in a
# scratch folder, runs the statements through `qfs --json -f` from inside it (one
# process), then lists what the tree holds and checks the expectations against qfs's
# output plus that listing.
#
# usage: run_case.sh QFS LIBRARY [-s STATEMENT | -e TEXT | -n TEXT]...
#   -s  a statement to run, in order
#   -e  text that must appear (fixed string)
#   -n  text that must not appear
# "@R@" in any of them stands for the scratch root. The listing has one line per entry:
# "file ./path SIZE" or "link ./path -> TARGET"; the last line of qfs's part is
# "exit=STATUS".
set -eu
qfs=$1
library=$2
shift 2

scratch=$(mktemp -d "${TMPDIR:-/tmp}/qfs-create-e2e.XXXXXX")
trap 'chmod -R u+rwx "$scratch" 2>/dev/null; rm -rf "$scratch"' EXIT
root=$(cd "$scratch" && pwd -P)/project

mkdir -p "$root/data/raw" "$root/notes"
printf 'a,b\n1,2\n' > "$root/data/raw/measurements.csv"
printf 'keep\n' > "$root/notes/existing.txt"
ln -s data/raw/measurements.csv "$root/latest"
ln -s gone.csv "$root/dangling"
ln -s loop-b "$root/loop-a"
ln -s loop-a "$root/loop-b"

statements="$scratch/statements.q"
expect="$scratch/expect"
: > "$statements"
: > "$expect"
while [ $# -gt 0 ]; do
  text=$(printf '%s' "$2" | sed "s|@R@|$root|g")
  case $1 in
    -s) printf '%s\n' "$text" >> "$statements" ;;
    -e) printf '+%s\n' "$text" >> "$expect" ;;
    -n) printf '%s%s\n' '-' "$text" >> "$expect" ;;
    *) echo "run_case.sh: unknown option $1" >&2; exit 2 ;;
  esac
  shift 2
done

out="$scratch/out"
# ZKFS_QFS_LAUNCHER (split into words) runs qfs under a tool such as valgrind.
status=0
(cd "$root" && ${ZKFS_QFS_LAUNCHER-} "$qfs" --library "$library" --json --locale en_US.UTF-8 -f "$statements") \
  > "$out" 2>&1 || status=$?
echo "exit=$status" >> "$out"
(cd "$root" && find . -mindepth 1 \( -type l -printf 'link %p -> %l\n' \) \
  -o \( -type f -printf 'file %p %s\n' \)) | sort >> "$out"

failed=0
while IFS= read -r line; do
  want=${line#?}
  case $line in
    +*) grep -qF -- "$want" "$out" || { echo "missing: $want"; failed=1; } ;;
    -*) ! grep -qF -- "$want" "$out" || { echo "unexpected: $want"; failed=1; } ;;
  esac
done < "$expect"
if [ $failed -ne 0 ]; then
  echo "--- statements"; cat "$statements"
  echo "--- output"; cat "$out"
  exit 1
fi
