#!/usr/bin/env bash
# Runs every benchmark program, then the peers on the same data.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
for b in "$root"/build/bench/bench_*; do
  [ -f "$b" ] && [ -x "$b" ] || continue
  echo "== $(basename "$b")"
  "$b" --benchmark_min_time=0.3
done
if [ -x "$root/build/gnustep-peer" ]; then
  echo "== GNUstep NSKeyedArchiver / NSKeyedUnarchiver (quadratic encoder: small sizes only)"
  for n in 100 300 1000; do "$root/build/gnustep-peer" bench "$n"; done
fi
echo "== Python plistlib on the same lists (a yardstick for this machine's speed)"
python3 "$root/bench/peers/plistlib_peer.py" 1000 10000
