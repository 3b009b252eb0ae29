#!/usr/bin/env bash
# Runs a Python script of this project with the first interpreter that has the modules it needs:
# python3 on the PATH, else the system's own, for which Debian packages install them.
# Usage: program/plot/python.sh [--modules=NAME,...] SCRIPT [ARGUMENT...]
# Without --modules: NumPy, SciPy and Matplotlib.
set -euo pipefail

modules=numpy,scipy,matplotlib
if [[ ${1-} == --modules=* ]]; then
  modules=${1#*=}
  shift
fi
readonly CHECK='
import importlib.util, sys
missing = [m for m in sys.argv[1].split(",") if importlib.util.find_spec(m) is None]
sys.exit(1 if missing else 0)'

export PYTHONDONTWRITEBYTECODE=1
for interpreter in python3 /usr/bin/python3; do
  if "$interpreter" -c "$CHECK" "$modules" 2>/dev/null; then
    exec "$interpreter" "$@"
  fi
done
echo "no Python has ${modules//,/, }; install the packages python3-${modules//,/ python3-}" >&2
exit 1
