#!/usr/bin/env bash
# Takes the screenshots in docs/screenshots/ from the sample password file, under Xvfb.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
bash "$root/scripts/test-env.sh" "$root/build/tools/screenshots" "$root/examples/Sample.qvm" "$root/docs/screenshots"
