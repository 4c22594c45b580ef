#!/usr/bin/env bash
# Fails when a C or C++ file of the tree differs from what clang-format makes
# of it (.clang-format); lists the files. `--fix` formats them in place.
set -euo pipefail
cd "$(dirname "$0")/.."
mapfile -t files < <(git ls-files --cached --others --exclude-standard '*.c' '*.cpp' '*.h')
if [ "${1:-}" = --fix ]; then
    clang-format -i "${files[@]}"
    exit 0
fi
bad=()
for f in "${files[@]}"; do
    clang-format --dry-run --Werror "$f" >/dev/null 2>&1 || bad+=("$f")
done
if [ ${#bad[@]} -gt 0 ]; then
    printf 'not formatted (run scripts/check-format.sh --fix):\n' >&2
    printf '  %s\n' "${bad[@]}" >&2
    exit 1
fi
echo "format: ${#files[@]} files formatted"
