#!/usr/bin/env bash
# Runs the fuzz targets built in BUILD_DIR, each for FUZZ_SECONDS (and at
# most FUZZ_RUNS executions when set), one after another. Seeds are made
# afresh in BUILD_DIR/seeds from fuzz/seeds/ and the shared corpus of real
# files (INKHARBOUR_CORPUS, by default ../shared/corpus beside the project);
# what a target learns is kept in BUILD_DIR/corpus/TARGET between runs, and
# a failing input lands in BUILD_DIR/crashes/. Exits 1 when any target
# failed. Usage: fuzz/run.sh BUILD_DIR [TARGET...]
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="$(cd "${1:?usage: fuzz/run.sh BUILD_DIR [TARGET...]}" && pwd)"
shift
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=(docx xlsx document merge round_trip)
seconds="${FUZZ_SECONDS:-60}"
runs="${FUZZ_RUNS:-}"
jobs="${FUZZ_JOBS:-1}"
corpus="${INKHARBOUR_CORPUS:-$root/../shared/corpus}"
tool="$build/fuzz/fuzz_seeds"

# Largest input per target: a package's parts, a document file, a few
# stories. Longer inputs only make every execution slower.
max_len() {
  case "$1" in
    docx|xlsx) echo 65536 ;;
    document) echo 16384 ;;
    *) echo 4096 ;;
  esac
}

# The seeds and dictionary of a target: merge and round_trip share the
# stories' ones.
kind() {
  case "$1" in
    merge|round_trip) echo stories ;;
    *) echo "$1" ;;
  esac
}

# The shared corpus is read-only: its small packages are copied as they are,
# and every package also goes in unpacked into a member list.
make_seeds() {
  local target="$1" seeds="$2" limit
  limit="$(max_len "$target")"
  rm -rf "$seeds"
  mkdir -p "$seeds"
  cp "$root/fuzz/seeds/$(kind "$target")"/* "$seeds"/
  case "$target" in
    docx|xlsx)
      if [ -d "$corpus/$target" ]; then
        find "$corpus/$target" -type f -size -"$limit"c -exec cp {} "$seeds"/ \;
        "$tool" unpack "$seeds" "$limit" "$corpus/$target"/* >/dev/null
      else
        echo "fuzz: no corpus at $corpus/$target; hand-made seeds only" >&2
      fi ;;
    document) "$tool" documents "$seeds" >/dev/null ;;
  esac
}

failed=()
for target in "${targets[@]}"; do
  binary="$build/fuzz/fuzz_$target"
  [ -x "$binary" ] || { echo "fuzz: no target $binary" >&2; exit 2; }
  seeds="$build/seeds/$target"
  learned="$build/corpus/$target"
  mkdir -p "$learned" "$build/crashes"
  make_seeds "$target" "$seeds"
  args=(
    -max_len="$(max_len "$target")"
    -max_total_time="$seconds"
    -timeout=10            # seconds for one input: anything slower is a hang
    -rss_limit_mb=2048
    -malloc_limit_mb=2048
    -detect_leaks=1
    -print_final_stats=1
    -artifact_prefix="$build/crashes/$target-"
  )
  [ -n "$runs" ] && args+=(-runs="$runs")
  dict="$root/fuzz/$(kind "$target").dict"
  [ -f "$dict" ] && args+=(-dict="$dict")
  # One process has no other's findings to pick up: rereading the corpus
  # would only cost time.
  if [ "$jobs" -gt 1 ]; then args+=(-jobs="$jobs" -workers="$jobs"); else args+=(-reload=0); fi
  echo "== fuzz_$target: ${seconds}s${runs:+, at most $runs runs}"
  if ! ASAN_OPTIONS="detect_leaks=1:${ASAN_OPTIONS:-}" \
       UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1:${UBSAN_OPTIONS:-}" \
       "$binary" "${args[@]}" "$learned" "$seeds" 2>"$build/fuzz-$target.log"; then
    failed+=("$target")
    tail -n 60 "$build/fuzz-$target.log" >&2
  fi
  grep -aE "^stat::(number_of_executed_units|average_exec_per_sec|peak_rss_mb)" \
    "$build/fuzz-$target.log" | tr '\n' ' ' || true
  echo
done

if [ ${#failed[@]} -gt 0 ]; then
  echo "fuzz: failed: ${failed[*]} (inputs in $build/crashes/)" >&2
  exit 1
fi
