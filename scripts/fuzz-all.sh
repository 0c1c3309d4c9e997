#!/usr/bin/env bash
# Builds the fuzz tree and runs every fuzz target (or the ones named) for
# SECONDS each, one after the other, on its committed seeds and on the inputs
# under fuzz/*/regressions/TARGET that once found something. New inputs go to
# build-fuzz/fuzz-runs/TARGET/corpus, never into the repository. Stops at the
# first finding and prints the path of the input that caused it; exits 0 when
# every target ran clean.
#
#   scripts/fuzz-all.sh SECONDS [TARGET...]
#   VZK_FUZZ_TIMEOUT=60 scripts/fuzz-all.sh ...   (seconds per input, default 25)
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:?usage: scripts/fuzz-all.sh SECONDS [TARGET...]}
shift
build=${VZK_FUZZ_BUILD:-build-fuzz}
# Seconds one input may take. Big pictures under the sanitizers take a second
# or two alone; on a machine busy with builds, give more.
timeout=${VZK_FUZZ_TIMEOUT:-25}
runs=$build/fuzz-runs

launcher=()
if command -v ccache >/dev/null; then
  launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi
CC=clang CXX=clang++ cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DVZK_BUILD_FUZZERS=ON -DVZK_BUILD_BENCHMARKS=OFF "${launcher[@]}" >/dev/null

if [ $# -gt 0 ]; then
  targets=("$@")
else
  mapfile -t targets < <(sed -n 's/^vzk_add_fuzzer(\([A-Za-z0-9_]*\).*/\1/p' fuzz/*/CMakeLists.txt)
fi
cmake --build "$build" --target "${targets[@]}"

# libFuzzer flags from TARGET.options ([libfuzzer] section, "name = value"
# lines); a dictionary is named relative to the options file.
options_of() {
  local file=$1 directory
  directory=$(dirname "$file")
  sed -n '/^\[libfuzzer\]/,/^\[/{s/^\([a-z_]*\) *= *\(.*\)$/\1 \2/p}' "$file" |
    while read -r name value; do
      if [ "$name" = dict ]; then
        value=$directory/$value
      fi
      printf -- '-%s=%s\n' "$name" "$value"
    done
}

for target in "${targets[@]}"; do
  seeds=$(find fuzz -path "*/corpus/$target" -type d)
  if [ -z "$seeds" ]; then
    echo "$target has no seeds under fuzz/*/corpus/$target" >&2
    exit 1
  fi
  # Inputs that once found something are read at start-up with the seeds.
  regressions=$(find fuzz -path "*/regressions/$target" -type d)
  flags=()
  options=$(find fuzz -name "$target.options")
  if [ -n "$options" ]; then
    mapfile -t flags < <(options_of "$options")
  fi
  mkdir -p "$runs/$target/corpus"
  log=$runs/$target/log
  echo "== $target: ${seconds}s ${flags[*]}"
  if ! nice -n 10 "$build/bin/$target" "$runs/$target/corpus" "$seeds" $regressions \
    -max_total_time="$seconds" -timeout="$timeout" -print_final_stats=1 \
    -artifact_prefix="$runs/$target/" "${flags[@]}" >"$log" 2>&1; then
    tail -n 60 "$log"
    reproducer=$(sed -n 's/.*Test unit written to \(.*\)$/\1/p' "$log" | tail -n 1)
    echo "FINDING in $target; reproducer: ${reproducer:-none written, see $log}" >&2
    echo "replay: $build/bin/$target ${reproducer:-INPUT}" >&2
    exit 1
  fi
  grep -E '^#[0-9]+[[:space:]]+DONE' "$log" | tail -n 1 || true
  grep -E 'stat::number_of_executed_units' "$log" || true
done
echo "every target ran clean"
