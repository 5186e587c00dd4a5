#!/usr/bin/env bash
# qfs as people use it, from outside: `prompt.sh QFS json` reads both JSON forms with
# Python's json (bytes that are not UTF-8 come back with surrogateescape) and checks that
# they agree; `prompt.sh QFS tmux` drives the interactive prompt through tmux send-keys
# and reads the screen, in English and in German.
set -euo pipefail
qfs=$1
work=$(mktemp -d)
sessions=0
sock=$work/tmux0.sock
finish() {
    for socket in "$work"/tmux*.sock; do tmux -S "$socket" kill-server 2>/dev/null || true; done
    # A qfs ended by the hang-up may still be saving its history.
    for _ in $(seq 1 50); do rm -rf "$work" 2>/dev/null && return 0; sleep 0.1; done
    return 0
}
trap finish EXIT
cd "$work"
mkdir data
touch data/a.csv "$(printf 'data/n\xffx.txt')" "$(printf 'data/n\xfex.txt')"

if [ "$2" = json ]; then
    cat > all.qfs <<'QFS'
r = resolvePathFcnWithAttributes({'data'; 'data/a.csv'; 'none'});
[tf, t] = isSymlinkFcn(["data" missing "data/a.csv"]);
p = pathFcn({'/srv/x.tar.gz', 'https://h.org:8080/a?q=1#f'}, 'unix');
u = createFileURL('data/a.csv');
v = createURLFromPartsFcn("https://h.org/a/b", "../c");
g = getPerms_impl('data', 'Folder');
a = isAbsolutePathNoIOFcn(reshape(["/a" "b" "/c" "d"], 2, 2));
n = pathNameLengthValidation({'a'; 'b'});
rel = relativepath('/srv', ["/srv/a" "/etc"]);
c = getContentTypeFcn('data/a.csv');
[ok, m, id] = mkFileFcn('out/new.txt', 'ReplacementRule', 'overwrite');
f = modifyPerms_impl('data', 'Folder', struct('GroupRead', true), [], 'all');
QFS
    "$qfs" --json -f all.qfs > typed.jsonl
    "$qfs" --json=plain -f all.qfs > plain.jsonl
    printf 'x = {%s}\n' "$(cd data && for f in n*; do printf "'%s'; " "$PWD/$f"; done | sed 's/; $//')" > names.qfs
    "$qfs" --json=plain -f names.qfs > names.jsonl
    python3 - "$work" <<'PY'
import json, os, sys
work = sys.argv[1]
def plain(t):
    """The plain form of a typed value, as qfs --json=plain promises it."""
    if t is None:
        return None
    size, cls, v = t["size"], t["class"], t["value"]
    count = 1
    for d in size:
        count *= d
    if cls == "char":
        return v
    el = lambda k: plain(v[k]) if cls == "cell" else (
        {n: plain(x) for n, x in v[k].items()} if cls == "struct" else v[k])
    if count == 1 and cls != "cell":
        return el(0)
    if len(size) == 2 and (1 in size or count == 0):
        return [el(k) for k in range(count)]
    rows, cols = size[0], size[1]
    return [[el(c * rows + r) for c in range(cols)] for r in range(rows)]
typed = [json.loads(l) for l in open(os.path.join(work, "typed.jsonl"))]
plains = [json.loads(l) for l in open(os.path.join(work, "plain.jsonl"))]
assert len(typed) == len(plains) == 12, (len(typed), len(plains))
for t, p in zip(typed, plains):
    assert "outputs" in t, t
    assert list(p.values()) == [plain(o) for o in t["outputs"]], (t, p)
names = json.loads(open(os.path.join(work, "names.jsonl")).read())["x"]
got = sorted(os.path.basename(n.encode("utf-8", "surrogateescape")) for n in names)
want = sorted(n for n in os.listdir(os.path.join(work.encode(), b"data")) if n.startswith(b"n"))
assert got == want and len(got) == 2, (got, want)
print("both JSON forms agree on", len(typed), "statements; non-UTF-8 names survive")
PY
    exit 0
fi

command -v tmux >/dev/null || { echo "tmux is not installed (scripts/install-deps installs it): skipped"; exit 77; }
export HOME=$work  # the history file lands in the scratch folder
screen() { tmux -S "$sock" capture-pane -p -J -S -300; }
# Typed at an idle prompt only, as a person would (typeahead echoes raw); tmux reads a
# final ";" as its own separator unless escaped.
ready() {
    for _ in $(seq 1 100); do
        [ "$(screen | sed 's/[[:space:]]*$//' | sed '/^$/d' | tail -n 1)" = ">>" ] && return 0
        sleep 0.1
    done
    echo "no prompt"; screen; exit 1
}
type() { ready; tmux -S "$sock" send-keys -l "${1%;}"; [ "${1: -1}" != ";" ] || tmux -S "$sock" send-keys '\;'; }
line() { type "$1"; tmux -S "$sock" send-keys Enter; }
waitFor() {
    for _ in $(seq 1 100); do
        if screen | grep -qF -- "$1"; then return 0; fi
        sleep 0.1
    done
    echo "the screen never showed: $1"; screen; exit 1
}
# A server of its own per session: a new one on a socket whose server is still shutting
# down would be refused.
start() {
    tmux -S "$sock" kill-server 2>/dev/null || true
    sessions=$((sessions + 1))
    sock=$work/tmux$sessions.sock
    tmux -S "$sock" new-session -d -x 220 -y 60 -c "$work" "$qfs $*; sleep 30"
}

start --locale en_US.UTF-8
waitFor "Type help for the list"
line "isSymlinkFcn('data');"
line "ans"
waitFor "ans =
  logical"
line "r = resolvePathFcn('data');"
line "p = pathFcn(r.ResolvedPath, 'unix');"
line "p.Name"
waitFor '"data"'
type "createFileURL('never run"
waitFor "createFileURL('never run"  # Ctrl-C once the text shows, as a person presses it
tmux -S "$sock" send-keys C-c
# Ctrl-C hard on a burst of keys lands while readline is still taking them in, not
# waiting for the next one: the line must still be dropped at once.
ready
prompts=$(screen | grep -c '^>>')
tmux -S "$sock" send-keys -l "createFileURL('never run$(printf '%03000d' 0)"
tmux -S "$sock" send-keys C-c
for _ in $(seq 1 100); do [ "$(screen | grep -c '^>>')" -gt "$prompts" ] && break; sleep 0.1; done
[ "$(screen | grep -c '^>>')" -gt "$prompts" ] || { echo "Ctrl-C lost in a burst of keys"; screen; exit 1; }
line "who"
waitFor "ans  p  r"
type "q = pathF"
tmux -S "$sock" send-keys Tab
tmux -S "$sock" send-keys -l "('/srv/x.csv', 'unix')"
tmux -S "$sock" send-keys '\;' Enter
line "q.Extension"
waitFor '".csv"'
screen | grep -qF ">> q = pathFcn('/srv/x.csv', 'unix');" || { echo "Tab did not complete pathF"; screen; exit 1; }
line "modifyPerms_impl('data', 'Folder', struct('groupwrite', true))"
waitFor "note: 'groupwrite' is not a permission name, so it changes nothing; did you mean 'GroupWrite'?"
line "exit"
for _ in $(seq 1 50); do [ -s .qfs_history ] && break; sleep 0.1; done
grep -qF "never run" .qfs_history && { echo "an abandoned line reached the history"; exit 1; }
screen | grep -qF "never run'" && { echo "the abandoned line ran"; exit 1; }
grep -qF "who" .qfs_history || { echo "the history was not saved"; exit 1; }

start --locale de_DE.UTF-8
waitFor "help zeigt die Liste"
for statement in "x = pathFcn('a' 'b')" "help pathFcn" "pathfcn" "who" "pathFcn('a', 'Unix');"; do
    line "$statement"
done
waitFor "Hinweis: 'Unix' benennt keine Konvention"
shown=$(screen)
for english in "Error using" "Parse error" "Type help" "is not" "note:" "Your variables" \
    "Outputs:" "Example:" "expected" "Did you mean" "names no convention"; do
    if grep -qF -- "$english" <<<"$shown"; then
        echo "English in the German session: $english"; echo "$shown"; exit 1
    fi
done
echo "prompt: variables, ans, fields, Ctrl-C, Tab, notes and German all as expected"
