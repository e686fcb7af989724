#!/usr/bin/env bash
# Builds the fuzzers and runs each until it has tried that many inputs, one after the other.
#   fuzz/run.sh                        10,000,000 inputs each
#   fuzz/run.sh -n 100000 search       fewer, and only fuzz_search
#   fuzz/run.sh -t 600 reader writer   as many as there is time for: 600 seconds each; with -n too, whichever comes first
# Corpus, log and findings stay outside the tree, in ${FUZZ_DIR:-~/.cache/upnpvelorn-fuzz}/<name>/, so that the next run
# goes on from there. Ends with one line for each fuzzer: how many inputs it really tried, and what it found.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

. scripts/setup.sh

known=(search request announcement reader writer)
names=()
runs=
seconds=

# judge_number OPTION VALUE
judge_number() { [[ $2 =~ ^[1-9][0-9]{0,8}$ ]] || fail "$1 takes a number from 1 to 999999999, not '$2'"; }

while [ $# -gt 0 ]; do
    case $1 in
    -h | --help) describe fuzz/run.sh; exit 0 ;;
    -n) judge_number "$1" "${2-}"; runs=$2; shift 2 ;;
    -t) judge_number "$1" "${2-}"; seconds=$2; shift 2 ;;
    -*) fail "there is no option '$1'; there are: -n INPUTS, -t SECONDS, --help" ;;
    *)
        is_one_of "$1" "${known[@]}" || fail "there is no fuzzer '$1'; there are: $(listed "${known[@]}")"
        names+=("$1")
        shift
        ;;
    esac
done
[ ${#names[@]} -gt 0 ] || names=("${known[@]}")
[ -n "$runs$seconds" ] || runs=10000000
extent=$(listed ${runs:+"$runs inputs"} ${seconds:+"$seconds seconds"})
require_writable fuzz
command -v clang++ >/dev/null || fail "needs clang++: apt-get install clang libclang-rt-dev libdbus-1-dev"
directory=${FUZZ_DIR:-${XDG_CACHE_HOME:-$HOME/.cache}/upnpvelorn-fuzz}

cmake --preset fuzz >/dev/null
cmake --build --preset fuzz

export LC_ALL=C TZ=UTC0
# Remembering who allocated what, and keeping what was freed for long, takes most of the time.
export ASAN_OPTIONS=malloc_context_size=0:quarantine_size_mb=1:thread_local_quarantine_size_kb=64:max_malloc_fill_size=0:${ASAN_OPTIONS:-}
export UBSAN_OPTIONS=print_stacktrace=1:${UBSAN_OPTIONS:-}

# Long enough for a whole input of the kind, short enough for speed: length is the business of largeinputs.cpp.
declare -A longest=([search]=384 [request]=192 [announcement]=640 [reader]=320 [writer]=256)

# fuzz NAME: runs one fuzzer and appends to the summary
summary=()
result=0
fuzz() {
    local own=$directory/$1 options=() status=0 done_runs last
    mkdir -p "$own/corpus" "$own/findings"
    [ ! -e "fuzz/$1.dict" ] || options=(-dict="fuzz/$1.dict")
    printf '\n== fuzz_%s: %s, corpus in %s\n' "$1" "$extent" "$own/corpus"
    "build-fuzz/fuzz/fuzz_$1" -runs="${runs:--1}" -max_total_time="${seconds:-0}" -max_len="${longest[$1]}" -len_control=20 \
        -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 -artifact_prefix="$own/findings/" "${options[@]}" "$own/corpus" "fuzz/seeds/$1" 2>&1 |
        tee "$own/log" | grep --line-buffered -E '^#[0-9]+[[:space:]]+(pulse|INITED|DONE)|ERROR|not so|runtime error|Test unit' || true
    done_runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$own/log")
    last=$(grep -oE 'cov: [0-9]+ ft: [0-9]+' "$own/log" | tail -n 1) || true
    grep -q '^Done ' "$own/log" || status=1
    summary+=("$(printf '%-13s %12s inputs  %s  %s' "$1" "${done_runs:-?}" "$last" \
        "$([ $status = 0 ] && echo 'nothing found' || echo "FAILED: see $own/log and $own/findings/")")")
    [ $status = 0 ] || result=1
}

for name in "${names[@]}"; do
    fuzz "$name"
done
printf '\n'
printf '%s\n' "${summary[@]}"
exit $result
