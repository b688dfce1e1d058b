#!/bin/sh
# pip.sh PYTHON SOURCES: installs the package with pip in a new virtual environment, without a network, and lets its
# pytest plugin and its tests of devices be found there.
set -eu
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp -R "$2/bindings/python" "$work/source" # so that the build does not write to the sources
"$1" -m venv --system-site-packages "$work/environment"
"$work/environment/bin/pip" install --quiet --no-index --no-cache-dir --disable-pip-version-check "$work/source"
cp "$2/tests/bindings/python/test_devices.py" "$work/"
cd "$work"
"$work/environment/bin/python" -c 'import yorvanusb; assert "/environment/" in yorvanusb.__file__, yorvanusb.__file__'
"$work/environment/bin/python" -m pytest -q -p no:cacheprovider test_devices.py
"$work/environment/bin/pip" uninstall --quiet --yes yorvanusb
! "$work/environment/bin/python" -c 'import yorvanusb' 2>/dev/null
