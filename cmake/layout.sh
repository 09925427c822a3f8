#!/usr/bin/env bash
# Names the sources that aren't laid out as .clang-format says, and fails if there are any; with --fix lays them out.
set -uo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.." || exit 1
way=(--dry-run --Werror)
[ "${1:-}" = --fix ] && way=(-i)
find bench engine fuzz host include msgstore packaging platform samples tests \
    \( -name '*.cpp' -o -name '*.h' \) -print0 | xargs -0 -n 50 -P "$(nproc)" clang-format-14 "${way[@]}"
