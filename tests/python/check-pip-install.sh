#!/usr/bin/env bash
# pip installs the Python package from a copy of its source (no network, no build isolation)
# into a private directory, then runs the journey tests against what was installed.
# Usage: check-pip-install.sh PYTHON SOURCE_DIR HEADER LIBRARY KIT_LIBRARY TESTS_DIR
set -euo pipefail
python=$1 source=$2 header=$3 library=$4 kit=$5 tests=$6
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp -r "$source" "$work/src"
rm -rf "$work/src/build" "$work/src"/*.egg-info
QUOR_CS_HEADER=$header "$python" -m pip install -q --no-build-isolation --no-deps --no-index \
  --root-user-action=ignore --target "$work/site" "$work/src"
test -f "$work/site/quor_cs/quor_cs.h" && test -f "$work/site/quor_cs/quor_cs_kit.h"
cd "$work"
export QUOR_CS_LIBRARY=$library QUOR_CS_KIT_LIBRARY=$kit PYTHONPATH=$work/site PYTHONDONTWRITEBYTECODE=1
"$python" -c "import quor_cs; assert quor_cs.__file__.startswith('$work/site/'), quor_cs.__file__"
"$python" -m pytest -q -p no:cacheprovider "$tests/test_journey.py"
