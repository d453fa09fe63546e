#!/usr/bin/env bash
# The main job, end to end: a central service over a fresh store, an installation imported into it,
# and two client processes that read, write, and see each other's changes.
# usage: examples/run.sh BUILD-FOLDER
set -euo pipefail
cd "$(dirname "$0")/.."
build=$(cd "$1" && pwd)
cfg=$build/bin/cfg
source=$PWD
work=$(mktemp -d)
service=
finish() {
  [ -z "$service" ] || { kill "$service" 2>/dev/null && wait "$service" 2>/dev/null; } || true
  rm -rf "$work"
}
trap finish EXIT
cd "$work"

printf 'A central service over a fresh store, %s/tree.sqlite:\n' "$work"
printf '\n$ svcfg --store sqlite:tree.sqlite --port 0 --print-port &\n'
mkfifo port
"$build/bin/svcfg" --config /dev/null --store "sqlite:$work/tree.sqlite" --port 0 --print-port >port 2>svcfg.log &
service=$!
read -r port <port || { cat svcfg.log >&2; exit 1; }
echo "$port"
server=127.0.0.1:$port

show() {
  printf '\n$ cfg --server %s %s\n' "$server" "$*"
  "$cfg" --server "$server" "$@"
}

show ping
show import "$source/examples/installation.xml"
show tree --depth 1 halvoria/system
show get halvoria/system/nodes/pacs01/properties/inet_address

printf '\nOne client process, through the library, waits for a value to change:\n'
printf 'cfg_type = remote\nremote_server_name = 127.0.0.1\nremote_server_port = %s\nlocal_host_ip = 127.0.0.1\n' "$port" >params.txt
printf '\n$ wait_for_change params.txt "halvoria\\conf\\reports\\paper" &\n'
mkfifo lines
"$build/examples/wait_for_change" params.txt 'halvoria\conf\reports\paper' >lines &
waiting=$!
exec 3<lines
read -r line <&3 && echo "$line"
printf '\nAnother one changes it:\n'
show set halvoria/conf/reports/paper A5
printf '\nand the first one prints:\n'
read -r line <&3 && echo "$line"
wait "$waiting"

printf '\nTried first, then done, in one transaction:\n'
show --dry-run cp halvoria/system/nodes/read02 halvoria/system/nodes/read03
show cp halvoria/system/nodes/read02 halvoria/system/nodes/read03
printf '\nWho changed what, from the log of the service:\n'
grep -o 'user .*: CFG_.*' svcfg.log | tail -n 4

printf '\nA program that keeps the tree in files of its own:\n'
sed 's/remote$/synced_file/' params.txt >synced.txt
printf 'xml_file = %s/files/tree.cfg\n' "$work" >>synced.txt
mkdir files
start_offline() {
  printf '\n$ start_offline synced.txt osei "halvoria\\conf\\reports\\paper"\n'
  "$build/examples/start_offline" synced.txt osei 'halvoria\conf\reports\paper' 2>start.log
}
start_offline

printf '\nThe service ends when it is told to:\n\n$ kill %s\n' "$service"
kill "$service"
wait "$service" || { echo "svcfg ended with $?" >&2; exit 1; }
service=
tail -n 1 svcfg.log

printf '\nand that program starts nevertheless:\n'
start_offline

cat <<TEXT

To go on: $1/bin/svcfg --help              the service and its settings
          $1/bin/cfg --help                the command
          $1/bin/cfg --file examples/installation.xml tree
          docs/guide.md, docs/operating.md
TEXT
