#!/usr/bin/env bash
# A small program outside the repository builds and runs against the library: installed, and found
# by CMake and by pkg-config; and compiles with our sources as a part of its own project.
# usage: install_test.sh SOURCE-FOLDER BUILD-FOLDER
set -euo pipefail
source=$1 build=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/prefix" >/dev/null
cp -r "$source/examples/first_program" "$work/program"
cp "$source/examples/installation.xml" "$work/"
printf 'cfg_type = file\nxml_file = %s/installation.xml\nlocal_host_ip = 127.0.0.1\n' "$work" >"$work/params.txt"
expected=$("$work/prefix/bin/cfg" --file "$work/installation.xml" get 'halvoria\system\nodes\pacs01\properties\inet_address')
[ -n "$expected" ]

check() {
  local got
  got=$("$1" "$work/params.txt")
  [ "$got" = "$expected" ] || { echo "$2: got '$got', expected '$expected'" >&2; exit 1; }
  echo "$2: $got"
}

cmake -S "$work/program" -B "$work/by-cmake" -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/by-cmake" >/dev/null
check "$work/by-cmake/first_program" CMake

PKG_CONFIG_PATH=$(dirname "$(find "$work/prefix" -name cfg.pc)")
export PKG_CONFIG_PATH
# shellcheck disable=SC2046
g++ -std=c++17 "$work/program/first_program.cpp" $(pkg-config --cflags --libs cfg) -o "$work/by-pkg-config"
check "$work/by-pkg-config" pkg-config

# A project around ours: the same target, none of our tests, nothing of ours in its own folders.
# Compiled is the program only: the library would be what is installed, made once more.
mkdir "$work/around"
cp "$work/program/first_program.cpp" "$work/around/"
cat >"$work/around/CMakeLists.txt" <<TEXT
cmake_minimum_required(VERSION 3.25)
project(around LANGUAGES CXX)
add_subdirectory($source halvoria)
add_executable(first_program first_program.cpp)
target_link_libraries(first_program PRIVATE HalvoriaCFG::CFG)
TEXT
cmake -S "$work/around" -B "$work/by-source" -G Ninja >/dev/null
ninja -C "$work/by-source" CMakeFiles/first_program.dir/first_program.cpp.o >/dev/null
if ninja -C "$work/by-source" -t targets all | grep -E '^(svcfg|tests/|halvoria/tests/|bin/)'; then
  echo "add_subdirectory: brings more than the library" >&2
  exit 1
fi
echo add_subdirectory

# The installed service finds its store's module, and the installed command the service.
mkfifo "$work/port"
"$work/prefix/bin/svcfg" --config /dev/null --store "sqlite:$work/tree.sqlite" --port 0 --print-port >"$work/port" 2>"$work/svcfg.log" &
service=$!
read -r port <"$work/port" || { cat "$work/svcfg.log" >&2; exit 1; }
"$work/prefix/bin/cfg" --server "127.0.0.1:$port" import "$work/installation.xml"
got=$("$work/prefix/bin/cfg" --server "127.0.0.1:$port" get 'halvoria\system\nodes\pacs01\properties\inet_address')
kill "$service"
wait "$service"
[ "$got" = "$expected" ] || { echo "svcfg: got '$got', expected '$expected'" >&2; exit 1; }
echo "svcfg: $got"
