#!/usr/bin/env bash
# Makes the pictures of the console in docs/images: builds, runs velcamd on a board and looks at it with a headless
# browser.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

if [[ ${1:-} == --help ]]; then
    echo "usage: ${0##*/} [DIR]    writes console.png and console-phone.png (default: docs/images)"
    exit 0
fi
if (($# > 1)) || [[ ${1:-} == -* ]]; then
    echo "${0##*/}: takes one folder; see --help" >&2
    exit 2
fi

scripts/install-deps.sh --browser
scripts/build.sh release velcamd vboard
mkdir -p "${1:-docs/images}"
PYTHONPATH=tests/browser /usr/bin/python3 scripts/screenshots.py --bin build/release/bin "${1:-docs/images}"
