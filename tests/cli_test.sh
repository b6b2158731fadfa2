#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
#
# cli_test.sh ZOFLV SAMPLES TEMP: exit codes, messages and JSON of the command, on sound and on
# damaged files. TEMP is emptied. A sanitizer's report fails the test by its lines on stderr.
set -u
zoflv=$1 samples=$2 tmp=$3 failed=0 shown=
rm -rf "$tmp" && mkdir -p "$tmp/folder" && mkfifo "$tmp/pipe" || exit 1
printf '%s\n' 'file(READ "${F}" t)' 'string(JSON n LENGTH "${t}")' 'message("count=${n}")' >"$tmp/json.cmake"

fail() { echo "FAIL: $shown: $*" >&2; head -n 9 "$tmp/err" >&2; failed=$((failed + 1)); [ $failed -lt 9 ] || exit 1; }

# expect CODES ARG...: runs the command; with 0 stderr has to be empty, else messages of its own.
expect() {
    codes=$1; shift; shown=$*
    timeout 60 "$zoflv" "$@" >"$tmp/out" 2>"$tmp/err"; code=$?
    case " $codes " in *" $code "*) ;; *) fail "exit code $code, not $codes" ;; esac
    if [ $code -eq 0 ]; then
        [ ! -s "$tmp/err" ] || fail "messages although all went well"
    elif [ ! -s "$tmp/err" ] || grep -qv '^zoflv: [^:]*: .' "$tmp/err"; then
        fail "no message, or one that is not the command's"
    fi
    case " $* " in *" --json "*) ;; *) return ;; esac
    # Every line has to be one whole JSON value; cmake reads them as an array.
    { echo '['; sed '$!s/$/,/' "$tmp/out"; echo ']'; } >"$tmp/array"
    lines=$(wc -l <"$tmp/out")
    cmake -DF="$tmp/array" -P "$tmp/json.cmake" 2>&1 | grep -qx "count=$lines" || fail "broken JSON"
}

# damaged CODES: those that bad.flv may give: never that of a file that cannot be opened.
damaged() { for c in "info --json" "frames --json" info; do expect "$1" $c "$tmp/bad.flv"; done; }

for sample in "$samples"/*.flv; do
    expect 0 info --json "$sample"; expect 0 frames --json "$sample"; expect 0 frames -v "$sample"
    for length in 300 1000 5000; do
        head -c $length "$sample" >"$tmp/bad.flv"; damaged "0 1"
    done
    for start in 13 40 400; do
        cp "$sample" "$tmp/bad.flv"
        printf '\377\177\000\200\377\377\377\012' |
            dd of="$tmp/bad.flv" bs=1 seek=$start conv=notrunc 2>"$tmp/err"
        damaged "0 1"
    done
    # Without the last PreviousTagSize the last frame cannot be read; a listing has to say so.
    head -c -4 "$sample" >"$tmp/bad.flv"; expect 1 frames --json "$tmp/bad.flv"
done
for length in 0 3 8 13 30; do head -c $length "$sample" >"$tmp/bad.flv"; damaged 1; done
head -c 4000 /dev/zero >"$tmp/bad.flv"; damaged 1
expect 2 info --json "$tmp/bad.flv" "$sample" "$tmp/none" # the worst code; the sound one is shown
[ "$(wc -l <"$tmp/out")" -eq 1 ] && [ "$(wc -l <"$tmp/err")" -eq 2 ] || fail "not one and two lines"
for path in "$tmp/folder" "$tmp/pipe" "$tmp/none" "$tmp/a
b"; do expect 2 info "$path"; expect 2 frames --json "$path"; done
expect 0 --version; expect 0 --help; expect 0 frames --help
for usage in "" bogus info frames "frames $sample --stream 1" "frames $sample --stream x" "info -x $sample"; do
    expect 2 $usage # split into words
done
"$zoflv" frames "$sample" >/dev/full 2>"$tmp/err"; [ $? -eq 2 ] || fail "full disk not noticed"
exit $((failed > 0))
