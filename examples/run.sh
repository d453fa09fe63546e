#!/usr/bin/env bash
# The main job, end to end: opens an example installation, reads it, changes it, compares.
# usage: examples/run.sh BUILD-FOLDER
set -euo pipefail
cd "$(dirname "$0")/.."
cfg=$PWD/$1/bin/cfg
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp examples/installation.xml "$work/tree.xml"
cd "$work"

show() {
  printf '\n$ %s\n' "$*"
  local status=0
  "$cfg" --file tree.xml "${@:2}" || status=$?
  [ $status -le 1 ] || exit $status  # 1: cfg diff found differences
}

echo "A small imaging installation, in a file of its own: $work/tree.xml"
show cfg stat
show cfg tree --depth 2 halvoria/system
show cfg get halvoria/system/nodes/pacs01/properties/inet_address
show cfg find --long ae --under halvoria/system/nodes
show cfg set halvoria/system/nodes/pacs01/properties/description "Picture archive, moved to rack 2"
show cfg cp halvoria/system/nodes/read02 halvoria/system/nodes/read03
printf '\nWhat changed, compared with the file we began with:\n'
printf '\n$ cfg diff installation.xml tree.xml\n'
"$cfg" diff "$OLDPWD/examples/installation.xml" tree.xml || [ $? = 1 ]

printf '\nThe same tree from a C++ program, through the factory:\n'
printf 'cfg_type = file\nxml_file = %s/tree.xml\nlocal_host_ip = 127.0.0.1\n' "$work" >params.txt
printf '\n$ first_program params.txt\n'
"$OLDPWD/$1/examples/first_program" params.txt

cat <<EOF

To go on: $1/bin/cfg --help
          $1/bin/cfg --file examples/installation.xml tree
          docs/guide.md
EOF
