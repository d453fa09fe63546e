#!/usr/bin/env bash
# Measures the library beside its peers: a table on standard output, rows in
# BUILD-FOLDER/bench/results.json. Takes about five minutes; --quick, on trees far too small
# for figures that mean anything, a few seconds.
# usage: bench/run.sh BUILD-FOLDER [--quick] [SUITE...]
set -euo pipefail
build=${1:?usage: bench/run.sh BUILD-FOLDER [--quick] [SUITE...]}
shift
exec "$build/bench/halvoria_bench" --scratch "$build/bench" --out "$build/bench" "$@"
