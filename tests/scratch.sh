# Sourced by tests: strict errors, and a directory to work in that is removed at the end.
set -euo pipefail
top=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
recording=$top/src/conformance/pcm_in_multi.s16
python=$top/program/plot/python.sh
work=$(mktemp -d "${TMPDIR:-/tmp}/se_bf.XXXXXX")
trap 'rm -rf "$work"' EXIT
cd "$work"
