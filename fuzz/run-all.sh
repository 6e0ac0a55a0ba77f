#!/usr/bin/env bash
# Runs every libFuzzer target of the fuzz build for a bounded time with a fixed
# seed: ./krv fuzz [SECONDS per target, default 60] [TARGET...]. New inputs go
# to a scratch corpus in the build tree (the checked-in corpus is read, never
# written); an input that crashes, hangs or leaks is left under
# build-fuzz/findings/<target>/ and fails the run. Copy it into
# fuzz/corpus/<target>/ once fixed: the replay tests keep it.
#
# FUZZ_FRESH=1 starts from the checked-in corpus alone (CI does, on a clean
# tree); otherwise a run goes on from the scratch corpus of earlier runs.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
shift || true
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=(socket_framing shmem_framing replies events values)
build=build-fuzz
failed=()
for target in "${targets[@]}"; do
  binary=$build/fuzz/fuzz_$target
  if [ ! -x "$binary" ]; then
    echo "fuzz: $binary is missing (build the fuzz preset first: cmake --workflow --preset fuzz)" >&2
    exit 2
  fi
  scratch=$build/scratch-corpus/$target
  findings=$build/findings/$target
  [ "${FUZZ_FRESH:-0}" = 1 ] && rm -rf "$scratch"
  mkdir -p "$scratch" "$findings"
  echo "== fuzz_$target: ${seconds}s"
  # -timeout: no input may take seconds (the harness's clock is simulated, so
  # nothing waits for real); a slower one is a hang. -max_len covers the
  # largest recorded seed. The dictionary holds the wire's constants.
  if ! "$binary" -seed=1 -max_total_time="$seconds" -timeout=10 -max_len=16384 -dict=fuzz/jdwp.dict \
      -print_final_stats=1 -artifact_prefix="$findings/" "$scratch" "fuzz/corpus/$target" \
      >"$build/fuzz_$target.out" 2>"$build/fuzz_$target.log"; then
    tail -n 60 "$build/fuzz_$target.log"
    failed+=("$target")
  fi
  # The last status line (executions, coverage, features, corpus) and the totals.
  grep -E '^#[0-9]+[[:space:]]+(DONE|pulse|NEW|REDUCE|INITED)' "$build/fuzz_$target.log" | tail -n 1 || true
  grep -E '^stat::(number_of_executed_units|peak_rss_mb)' "$build/fuzz_$target.log" || true
done
if [ ${#failed[@]} -gt 0 ]; then
  echo "fuzz: findings in ${failed[*]} (inputs under $build/findings/)" >&2
  exit 1
fi
echo "fuzz: no findings"
