#!/usr/bin/env bash
# Runs a Python script of this project with the first interpreter that has NumPy, SciPy and
# Matplotlib: python3 on the PATH, else the system's own, for which Debian packages install them.
# Usage: tools/plot/python.sh SCRIPT [ARGUMENT...]
set -euo pipefail

readonly CHECK='
import importlib.util, sys
missing = [m for m in ("numpy", "scipy", "matplotlib") if importlib.util.find_spec(m) is None]
sys.exit(1 if missing else 0)'

export PYTHONDONTWRITEBYTECODE=1
for interpreter in python3 /usr/bin/python3; do
  if "$interpreter" -c "$CHECK" 2>/dev/null; then
    exec "$interpreter" "$@"
  fi
done
echo "no Python has numpy, scipy and matplotlib; install the packages python3-numpy, python3-scipy and" \
  "python3-matplotlib" >&2
exit 1
