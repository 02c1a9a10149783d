#!/usr/bin/env bash
# Installs the build into a staging folder (DESTDIR) and uses every part of
# it from there: a C program built with pkg-config and one with CMake, the
# tool on its virtual instrument, the Python package and the SoapySDR module.
# Usage: staged_install.sh <build folder> <scratch folder>
set -euo pipefail
build=$(cd "$1" && pwd)
work=$2
here=$(cd "$(dirname "$0")" && pwd)
rm -rf "$work"
mkdir -p "$work"
stage=$(cd "$work" && pwd)/stage
unset QOR_API_LIBRARY QOR_D2XX_LIBRARY QOR_SIM_LIBRARY QOR_SIM_BENCH PYTHONPATH

DESTDIR=$stage cmake --install "$build" > "$work/install.log"
prefix=$stage$(sed -n 's/^CMAKE_INSTALL_PREFIX:PATH=//p' "$build/CMakeCache.txt")
pc=$(find "$prefix" -name qor_api.pc)
libdir=$(dirname "$(dirname "$pc")")
sim=$libdir/qor_api/libqor_sim.so
fail() { echo "FAIL: $*" >&2; exit 1; }

grep -q 'SONAME *libqor_api.so.3$' <<< "$(objdump -p "$libdir/libqor_api.so.3.1.0")" || fail "SONAME"
[ -f "$prefix/include/qor_api.h" ] || fail "header"
[ -n "$(find "$stage" -path '*/udev/rules.d/60-qor.rules')" ] || fail "udev rule"

# pkg-config: the file finds its prefix relative to itself.
flags=$(PKG_CONFIG_PATH=$(dirname "$pc") pkg-config --cflags --libs qor_api)
cc -o "$work/consumer_pc" "$here/consumer.c" $flags
grep -q 'NEEDED *libqor_api.so.3$' <<< "$(objdump -p "$work/consumer_pc")" || fail "linked without the SONAME"
LD_LIBRARY_PATH=$libdir QOR_D2XX_LIBRARY=$sim "$work/consumer_pc"

# CMake: find_package and the namespaced target.
cmake -S "$here/consumer" -B "$work/consumer_cmake" -DCMAKE_PREFIX_PATH="$prefix" > "$work/cmake.log"
cmake --build "$work/consumer_cmake" > "$work/build.log"
QOR_D2XX_LIBRARY=$sim "$work/consumer_cmake/consumer"

# The tool finds its library and the virtual instrument where they were installed.
units=$("$prefix/bin/qor" list --sim)
grep -q 12000002 <<< "$units" || fail "qor --sim"

# The Python package finds the installed library by itself.
package=$(dirname "$(find "$prefix" -path '*/qor/_installed.py')")
PYTHONPATH=$(dirname "$package") QOR_D2XX_LIBRARY=$sim /usr/bin/python3 -B -c "
import qor
assert qor.__file__.startswith('$stage'), qor.__file__
assert 12000002 in qor.serial_numbers()
print('python: qor', qor.api_version())"

# The SoapySDR module, when it was built.
module=$(find "$libdir" -name libqorSupport.so)
if [ -n "$module" ] && command -v SoapySDRUtil > /dev/null; then
  found=$(SOAPY_SDR_PLUGIN_PATH=$(dirname "$module") QOR_D2XX_LIBRARY=$sim SoapySDRUtil --find=driver=qor)
  grep -q 'serial = 12000002' <<< "$found" || fail "SoapySDR module"
  echo "soapy: found the units"
fi
echo "staged install: all parts work"
