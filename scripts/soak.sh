#!/usr/bin/env bash
# Sets up, builds and runs four drivers at once for a long time while the device is lost again and
# again. Checks every reply, and that descriptors and resident memory do not grow.
#
#   scripts/soak.sh [EXCHANGES]      (default: 1000000)
set -euo pipefail
cd "$(dirname "$0")/.."

exchanges=${1:-1000000}
if [ $# -gt 1 ] || ! [[ $exchanges =~ ^[1-9][0-9]{3,8}$ ]]; then
  echo "soak.sh: '$*' is not a number of exchanges; expected 1000 to 999999999" >&2
  exit 2
fi
scripts/setup.sh build test
cmake --preset release >/dev/null
cmake --build --preset release --target robustness_flap_test >build/release/soak-build.log ||
  { cat build/release/soak-build.log >&2; exit 1; }
KALODLL_FLAP_REQUESTS=$((exchanges / 4)) build/release/tests/robustness/robustness_flap_test
