#!/usr/bin/env bash
# Per-call benchmarks: builds the benchmark in Release (build-bench/, once
# with the debug log lines compiled in and once without), creates a SoftHSM2
# token with an RSA-2048 key, serves it through p11-kit, and prints one table
# from one run on this machine. See docs/performance.md.
#
#   bash scripts/bench.sh              # all of it (about ten minutes)
#   QOR_BENCH_ARGS='--benchmark_min_time=0.2' bash scripts/bench.sh
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
out=$root/build-bench/results
mkdir -p "$out"

bash scripts/setup.sh

for log in ON OFF; do
  dir=$root/build-bench/debug-log-$log
  cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=Release -DQOR_BENCH=ON -DQOR_BUILD_TESTS=OFF \
        -DQOR_DEBUG_LOG=$log >/dev/null
  cmake --build "$dir" -j2 --target qor_bench
done

work=$(mktemp -d /tmp/qor-bench-XXXXXX)
p11kit_pid=""
cleanup() {
  [ -n "$p11kit_pid" ] && kill "$p11kit_pid" 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

# One token for every path: SoftHSM2 directly, this library's serving
# process (the bridge) and the p11-kit server all open it.
mkdir -p "$work/tokens"
printf 'directories.tokendir = %s/tokens\nobjectstore.backend = file\nlog.level = ERROR\n' \
  "$work" > "$work/softhsm2.conf"
export SOFTHSM2_CONF=$work/softhsm2.conf
softhsm2-util --init-token --free --label bench --pin 1234 --so-pin 5678 >/dev/null
pkcs11-tool --module /usr/lib/softhsm/libsofthsm2.so --token-label bench --login --pin 1234 \
  --keypairgen --key-type rsa:2048 --label bench-rsa --id 01 >/dev/null

export XDG_RUNTIME_DIR=$work
eval "$(p11-kit server --sh --provider /usr/lib/softhsm/libsofthsm2.so 'pkcs11:token=bench')"
p11kit_pid=$P11_KIT_SERVER_PID
# The benchmark reads the server's CPU time by its pid.
export P11_KIT_SERVER_ADDRESS P11_KIT_SERVER_PID

common=(--benchmark_repetitions=9 --benchmark_enable_random_interleaving=true
        --benchmark_report_aggregates_only=true
        --benchmark_format=json ${QOR_BENCH_ARGS:-})
on=$root/build-bench/debug-log-ON/bin/qor_bench
off=$root/build-bench/debug-log-OFF/bin/qor_bench
# stderr (the serving side's error lines among it) goes to a file, not the terminal.
run() {
  local name=$1; shift
  echo "bench: $name" >&2
  "$@" "${common[@]}" > "$out/$name.json" 2> "$out/$name.stderr"
}
run quiet "$on" --paths=direct,qor,p11kit,floor,floor1,java,bridge,java-bridge
run null-logger "$on" --paths=qor --null-logger
run compiled-out "$off" --paths=qor
# The remoted paths once more with both ends of each on one CPU (the serving
# processes the benchmark forks inherit its affinity; p11-kit's is set).
cpu=$(taskset -pc $$ | sed 's/.*: //;s/[-,].*//')
taskset -apc "$cpu" "$p11kit_pid" >/dev/null
run pinned taskset -c "$cpu" "$on" --paths=qor,p11kit,floor,floor1
taskset -apc "$(taskset -pc $$ | sed 's/.*: //')" "$p11kit_pid" >/dev/null

python3 tools/bench/table.py "$out" | tee "$out/table.md"
