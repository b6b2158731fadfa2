#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
#
# help_test.sh COMMAND SOURCE_DIR: what each --help names is in the manual page, and bash completes it.
set -u

program=$1
page=$2/docs/zoflv.1
status=0
# shellcheck source=tools/completion/zoflv.bash
. "$2/tools/completion/zoflv.bash"

fail() {
    echo "help_test: $*" >&2
    status=1
}

# The options of a command, "" for all commands: each spelling on a line.
options() {
    # shellcheck disable=SC2086 # a command or none
    "$program" $1 --help | awk '/^[A-Z].*:$/ {on = ($1 == "Options:")} on && /^  -/ {print $1}' | tr ',' '\n' | sort
}

# completed WORD...: what is offered for the last word
completed() {
    COMP_WORDS=("$program" "$@")
    COMP_CWORD=$#
    _zoflv
    printf '%s\n' "${COMPREPLY[@]}"
}

# In the page the commands are subsections; the options of all commands come before the first of them.
in_page() {
    awk -v command="$1" '/^\.S[sh] / {name = $1 == ".Ss" ? $2 : ""} name == command && /^\.It Fl/' "$page" |
        grep -oE '\bFl [A-Za-z0-9-]+' | sed 's/^Fl /-/' | sort -u
}

commands=$(completed "")
for command in "" $commands; do
    [[ -z $command ]] || grep -qx "\.Ss $command" "$page" || fail "docs/zoflv.1: no subsection $command"
    named=$(options "$command")
    [[ -n $named ]] || fail "zoflv $command --help names no options"
    described=$(in_page "$command")$'\n-h\n--help'
    # shellcheck disable=SC2086
    offered=$(completed $command -)
    for option in $named; do
        grep -qxe "$option" <<<"$described" || fail "docs/zoflv.1, subsection ${command:-none}: $option is missing"
        grep -qxe "$option" <<<"$offered" || fail "zoflv $command: $option is not completed"
    done
done
[[ $(completed seek FILE --mode = cl) == $'closest\nclosest-sync' ]] || fail "the modes of a seek are not completed"
# The README's first example.
example=$(mktemp -d)
head -c 100000 "$2/samples/avc_aac_index.flv" >"$example/cut.flv"
line=$("$program" check "$example/cut.flv" | sed "s|^$example/||; q")
rm -rf "$example"
grep -qxF "    $line" "$2/README.md" || fail "README.md: not what is printed: $line"
if command -v mandoc >/dev/null; then
    mandoc -T lint "$page" >&2 || status=1
fi
exit "$status"
