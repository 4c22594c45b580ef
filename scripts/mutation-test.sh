#!/usr/bin/env bash
# Mutation test of the C++ suite: plants each fault of tests/mutation/mutants.txt,
# one at a time, in a scratch copy of the tree, rebuilds incrementally, runs the
# suite (ctest) against it and says whether the suite caught it. A mutant that
# does not build is invalid and not counted. Prints the score at the end.
#
# Usage: scripts/mutation-test.sh [--list FILE] [--keep] [NAME...]
#   NAME...      run only these mutants (default: all of the list)
#   --list FILE  another list of mutants (format: see tests/mutation/mutants.txt)
#   --check      only check that every mutant's original text is found, once
#   --keep       keep the scratch copy (its path is printed)
# Environment: TARVEL_MUTATION_JOBS (default 2), TARVEL_MUTATION_TIMEOUT (seconds
# per test without a time-out of its own, default 60).
# Takes about half an hour on two cores; not part of CI.
set -euo pipefail
cd "$(dirname "$0")/.."
source_dir=$(pwd)
list=$source_dir/tests/mutation/mutants.txt
keep=0
check_only=0
only=()
while [ $# -gt 0 ]; do
    case $1 in
        --list) list=$(cd "$(dirname "$2")" && pwd)/$(basename "$2"); shift 2 ;;
        --keep) keep=1; shift ;;
        --check) check_only=1; shift ;;
        -h|--help) sed -n '2,14p' "$0"; exit 0 ;;
        *) only+=("$1"); shift ;;
    esac
done
jobs=${TARVEL_MUTATION_JOBS:-2}
timeout=${TARVEL_MUTATION_TIMEOUT:-60}
python=$(command -v python3)

# mutate.py apply|restore|check LIST NAME ROOT: plants one mutant in ROOT, or
# puts the original file back, or checks the whole list; `names` lists them.
tool=$(mktemp)
trap 'rm -f "$tool"' EXIT
cat >"$tool" <<'PY'
import re, shutil, sys

def parse(path):
    mutants, cur = [], None
    for raw in open(path, encoding="utf-8"):
        line = raw.rstrip("\n")
        if line.startswith("@ "):
            name, file = line[2:].split()
            cur = {"name": name, "file": file, "old": [], "new": []}
            mutants.append(cur)
        elif cur is not None and line.startswith("- "):
            cur["old"].append(line[2:].strip())
        elif cur is not None and line.startswith("+ "):
            cur["new"].append(line[2:].strip())
    return mutants

def pattern(m):
    return re.compile("".join(("\n[ \t]*" if i else "") + re.escape(l) for i, l in enumerate(m["old"])))

def matches(m, root):
    text = open(f"{root}/{m['file']}", encoding="utf-8").read()
    return text, list(pattern(m).finditer(text))

cmd, listfile = sys.argv[1], sys.argv[2]
mutants = parse(listfile)
if cmd == "names":
    print("\n".join(m["name"] for m in mutants))
    sys.exit(0)
if cmd == "check":
    bad = 0
    for m in mutants:
        _, found = matches(m, sys.argv[3])
        if len(found) != 1:
            print(f"mutation-test: {m['name']}: the original text is found {len(found)} times in {m['file']}")
            bad += 1
    sys.exit(1 if bad else 0)
m = next(x for x in mutants if x["name"] == sys.argv[3])
root = sys.argv[4]
path = f"{root}/{m['file']}"
if cmd == "restore":
    shutil.copyfile(path + ".original", path)
    sys.exit(0)
text, found = matches(m, root)
if len(found) != 1:
    print(f"stale: the original text is found {len(found)} times in {m['file']}")
    sys.exit(2)
at = found[0]
indent = re.match(r"[ \t]*", text[text.rfind("\n", 0, at.start()) + 1:]).group(0)
shutil.copyfile(path, path + ".original")
open(path, "w", encoding="utf-8").write(text[:at.start()] + ("\n" + indent).join(m["new"]) + text[at.end():])
print(m["file"])
PY

if [ "$check_only" = 1 ]; then
    "$python" "$tool" check "$list" "$source_dir" && echo "mutation-test: every mutant of $list applies"
    exit
fi
"$python" "$tool" check "$list" "$source_dir"
[ ${#only[@]} -gt 0 ] || mapfile -t only < <("$python" "$tool" names "$list")

# The scratch copy: the tree as it is now (tracked and new files, no build output).
scratch=$(mktemp -d /tmp/tarvel-mutation.XXXXXX)
trap 'rm -f "$tool"; [ "$keep" = 1 ] && echo "mutation-test: scratch copy kept in $scratch" || rm -rf "$scratch"' EXIT
git ls-files -z --cached --others --exclude-standard | xargs -0 cp --parents -t "$scratch" 2>/dev/null || true
build=$scratch/build/default
log=$scratch/mutation.log
start=$(date +%s)

echo "mutation-test: building the unchanged tree in $scratch"
(cd "$scratch" && cmake --preset default -DTARVEL_WERROR=OFF -DTARVEL_BUILD_BENCH=OFF >"$log" 2>&1) ||
    { cat "$log"; exit 2; }
cmake --build "$build" -j"$jobs" >>"$log" 2>&1 || { tail -40 "$log"; exit 2; }
# A failure counts only if the failed test fails again: a test slowed down by
# a busy machine must not decide a verdict. After such a false alarm the
# whole suite runs again.
suite() {
    local args=(--test-dir "$build" -j"$jobs" --timeout "$timeout")
    ctest "${args[@]}" --stop-on-failure && return 0
    ctest "${args[@]}" --rerun-failed >/dev/null 2>&1 || return 1
    ctest "${args[@]}" && return 0
    ctest "${args[@]}" --rerun-failed >/dev/null 2>&1
}
if ! suite >"$scratch/baseline.txt" 2>&1; then
    echo "mutation-test: the suite fails without any mutant; fix that first:" >&2
    grep -E "Failed|Timeout|\*\*\*" "$scratch/baseline.txt" >&2 || tail -20 "$scratch/baseline.txt" >&2
    exit 2
fi
echo "mutation-test: the unchanged tree passes its $(grep -o 'out of [0-9]*' "$scratch/baseline.txt" | cut -d' ' -f3) tests;" \
    "$(printf '%s\n' "${only[@]}" | wc -l) mutants"

caught=0 survived=0 invalid=0
survivors=()
for name in "${only[@]}"; do
    t0=$(date +%s)
    if ! file=$("$python" "$tool" apply "$list" "$name" "$scratch"); then
        printf '%-9s %s (%s)\n' invalid "$name" "$file"
        invalid=$((invalid + 1))
        continue
    fi
    if ! cmake --build "$build" -j"$jobs" >"$scratch/build.txt" 2>&1; then
        verdict=invalid detail="does not build"
        invalid=$((invalid + 1))
    elif suite >"$scratch/run.txt" 2>&1; then
        verdict=SURVIVED detail=$file
        survived=$((survived + 1))
        survivors+=("$name")
    else
        verdict=caught
        # The failed test's name; a parameterised one is followed by "# GetParam() = ...".
        detail=$( (grep -E -o 'Test +#[0-9]+: [^ ]+ [^*]*\*+(Failed|Timeout|Exception|Not Run|SEGFAULT|Subprocess aborted)' \
                       "$scratch/run.txt" || true) | tail -1 | sed -E 's/^Test +#[0-9]+: ([^ ]+) [^*]*\*+/\1: /')
        caught=$((caught + 1))
    fi
    "$python" "$tool" restore "$list" "$name" "$scratch"
    printf '%-9s %-45s %4ss  %s\n' "$verdict" "$name" "$(($(date +%s) - t0))" "$detail"
done

valid=$((caught + survived))
minutes=$(( ($(date +%s) - start + 59) / 60 ))
echo "mutation-test: $caught of $valid mutants caught, $survived survived, $invalid invalid; ${minutes} min"
[ ${#survivors[@]} -eq 0 ] || echo "mutation-test: survivors: ${survivors[*]}"
[ "$valid" -gt 0 ] && echo "mutation-test: score $((100 * caught / valid))%"
