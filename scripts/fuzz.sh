#!/usr/bin/env bash
# Builds the libFuzzer targets with clang in build-fuzz/ and runs them.
#   fuzz.sh build              configure and build
#   fuzz.sh run TARGET SECONDS run one target (keyed, typedstream, openpath) over its seed corpus
#   fuzz.sh all SECONDS        build, then run every target
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
dir="$root/build-fuzz"

build() {
  if [ ! -f "$dir/build.ninja" ]; then
    CC=clang CXX=clang++ cmake -S "$root" -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Debug \
      -DTESSALINE_FUZZ=ON -DTESSALINE_BENCH=OFF -DTESSALINE_TESTS=OFF >/dev/null
  fi
  cmake --build "$dir" --target fuzz_keyed fuzz_typedstream fuzz_openpath
}

run() {
  local target=$1 seconds=$2
  local corpus
  corpus=$(mktemp -d /tmp/tessaline-fuzz.XXXXXX)
  cp "$root/fuzz/corpus/$target/"* "$corpus/"
  # macOS-made samples, when present beside the project, make good seeds too.
  local shared="$root/../shared/fixtures/$target"
  if [ -d "$shared" ]; then cp "$shared"/*.*plist "$shared"/*.typedstream "$corpus/" 2>/dev/null || true; fi
  local log="$corpus.log" rc=0
  "$dir/fuzz/fuzz_$target" -max_total_time="$seconds" -rss_limit_mb=2048 -timeout=10 -print_final_stats=1 \
    "$corpus" >"$log" 2>&1 || rc=$?
  if [ "$rc" -ne 0 ]; then tail -n 60 "$log"; else grep -E '^stat::(number_of_executed_units|peak_rss_mb)' "$log" | sed "s/^/$target /"; fi
  rm -rf "$corpus" "$log"
  return "$rc"
}

case "${1:-}" in
  build) build ;;
  run) run "$2" "$3" ;;
  all) build; run keyed "${2:-300}"; run typedstream "${2:-300}"; run openpath "${2:-300}" ;;
  *) echo "usage: fuzz.sh build | run TARGET SECONDS | all [SECONDS]" >&2; exit 1 ;;
esac
