#!/bin/sh
# Runs qfs statements against a fresh scratch tree and prints qfs's JSON lines, then the
# modes of the tree's entries ("mode relative-name", links not followed), so that a
# case can match both what the call answered and what it changed.
#   run-case.sh QFS LIBRARY 'STATEMENT' ['STATEMENT' ...]   (@T@ stands for the tree)
set -u
qfs=$1 lib=$2
shift 2
t=$(mktemp -d) || exit 2
trap 'chmod -R u+rwx "$t" 2>/dev/null; rm -rf "$t"' EXIT
mkdir -p "$t/d/s"
printf 'x' > "$t/d/f"
printf 'y' > "$t/d/s/g"
ln -s f "$t/d/l"
ln -s none "$t/d/dangling"
chmod 640 "$t/d/f"
chmod 600 "$t/d/s/g"
chmod 755 "$t/d" "$t/d/s"
# ZKFS_QFS_LAUNCHER (split into words) runs qfs under a tool such as valgrind.
for statement in "$@"; do
  statement=$(printf '%s' "$statement" | sed "s|@T@|$t|g")
  ${ZKFS_QFS_LAUNCHER-} "$qfs" --json --library "$lib" "$statement" | sed "s|$t|@T@|g"
done
for e in d d/f d/s d/s/g; do
  printf '%s %s\n' "$(stat -c %a "$t/$e")" "$e"
done
