#!/bin/sh
# One end-to-end case of the path built-ins: builds a small tree in a scratch folder, runs
# one statement through qfs --json, flattens the answer (flatten.py) and checks that every
# expected line is there, whole, and that qfs ended with the expected status.
# "@R@" in the statement and in the expectations stands for the scratch root.
#
# usage: run_case.sh QFS LIBRARY PYTHON EXIT STATEMENT [EXPECTED-LINE ...]
set -eu
qfs=$1 library=$2 python=$3 expected_exit=$4 statement=$5
shift 5
here=$(cd "$(dirname "$0")" && pwd)

scratch=$(mktemp -d "${TMPDIR:-/tmp}/qfs-paths-e2e.XXXXXX")
trap 'chmod -R u+rwx "$scratch" 2>/dev/null; rm -rf "$scratch"' EXIT
root=$(cd "$scratch" && pwd -P)

mkdir -p "$root/data/raw" "$root/data/processed"
printf 'station,temp_c\nA1,4.5\n' > "$root/data/raw/measurements.csv"   # 22 bytes
printf 'x' > "$root/data/raw/sensor log (march).txt"
printf 'PAR1' > "$root/data/processed/summary.parquet"
ln -s data/processed/summary.parquet "$root/latest"
ln -s gone.csv "$root/dangling"

# ZKFS_QFS_LAUNCHER (split into words) runs qfs under a tool such as valgrind.
stmt=$(printf '%s' "$statement" | sed "s|@R@|$root|g")
status=0
out=$(${ZKFS_QFS_LAUNCHER-} "$qfs" --library "$library" --json --locale en_US.UTF-8 "$stmt") || status=$?
facts=$(printf '%s\n' "$out" | "$python" "$here/flatten.py")
printf '>> %s\n%s\nexit=%s\n' "$stmt" "$facts" "$status"

failed=0
if [ "$status" != "$expected_exit" ]; then
  echo "FAILED: exit status $status, expected $expected_exit"
  failed=1
fi
for want in "$@"; do
  want=$(printf '%s' "$want" | sed "s|@R@|$root|g")
  if ! printf '%s\n' "$facts" | grep -Fxq -- "$want"; then
    echo "FAILED: no line '$want'"
    failed=1
  fi
done
exit $failed
