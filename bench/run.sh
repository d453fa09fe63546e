#!/usr/bin/env bash
# Measures the library beside its peers: a table on standard output, rows in
# BUILD-FOLDER/bench/results.json. A run of everything, ten minutes or more, also makes
# docs/performance.svg and the tables of docs/performance.md anew. --quick shows in a few seconds
# that everything runs, on trees far too small for figures that mean anything; its rows go to
# BUILD-FOLDER/bench/quick.
# usage: bench/run.sh BUILD-FOLDER [--quick] [SUITE...]
set -euo pipefail
build=${1:?usage: bench/run.sh BUILD-FOLDER [--quick] [SUITE...]}
shift
source=$(dirname "$0")/..

out=$build/bench
[[ " $* " != *" --quick "* ]] || out=$build/bench/quick
"$build/bench/halvoria_bench" --scratch "$build/bench" --out "$out" "$@"
[ $# -gt 0 ] || "$source/bench/draw.py" "$out" "$source/docs"
