#!/usr/bin/env bash
# Runs every libFuzzer target of the fuzz build for a bounded time with a fixed
# seed: ./krv fuzz [SECONDS per target, default 60]. New inputs go to a scratch
# corpus in the build tree (the checked-in corpus is read, never written); an
# input that crashes is left under build-fuzz/findings/<target>/ and fails the
# run. Copy it into fuzz/corpus/<target>/ once fixed: the replay tests keep it.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
build=build-fuzz
failed=()
for target in socket_framing shmem_framing replies events values; do
  scratch=$build/scratch-corpus/$target
  findings=$build/findings/$target
  mkdir -p "$scratch" "$findings"
  echo "== fuzz_$target: ${seconds}s"
  if ! "$build/fuzz/fuzz_$target" -seed=1 -max_total_time="$seconds" -print_final_stats=1 \
      -artifact_prefix="$findings/" "$scratch" "fuzz/corpus/$target" 2>"$build/fuzz_$target.log"; then
    tail -n 60 "$build/fuzz_$target.log"
    failed+=("$target")
  fi
  grep -E '^(#[0-9]+ +DONE|stat::number_of_executed_units|stat::peak_rss_mb)' "$build/fuzz_$target.log" || true
done
if [ ${#failed[@]} -gt 0 ]; then
  echo "fuzz: findings in ${failed[*]} (inputs under $build/findings/)" >&2
  exit 1
fi
echo "fuzz: no findings"
