#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
#
# cli_test.sh ZOFLV SAMPLES TEMP: exit codes, messages and JSON of the command, on sound and on
# damaged files. TEMP is emptied. A sanitizer's report fails the test by its lines on stderr.
set -u
zoflv=$1 samples=$2 tmp=$3 failed=0 shown=
rm -rf "$tmp" && mkdir -p "$tmp/folder" && mkfifo "$tmp/pipe" && : >"$tmp/json" || exit 1

fail() { echo "FAIL: $shown: $*" >&2; head -n 9 "$tmp/err" >&2; failed=$((failed + 1)); [ $failed -lt 9 ] || exit 1; }

# expect CODES ARG...: runs the command; with 0 stderr has to be empty, else messages of its own.
expect() {
    codes=$1; shift; shown=$*
    timeout 60 "$zoflv" "$@" >"$tmp/out" 2>"$tmp/err"; code=$?
    case " $codes " in *" $code "*) ;; *) fail "exit code $code, not $codes" ;; esac
    if [ $code -eq 0 ] && [ -s "$tmp/err" ]; then fail "messages although all went well"; fi
    [ $code -eq 0 ] || [ -s "$tmp/err" ] || fail "no message"
    ! grep -qv '^zoflv: [^:]*: .' "$tmp/err" || fail "a message that is not the command's"
    case " $* " in *" --json "*) cat "$tmp/out" >>"$tmp/json" ;; esac
}
# holds TEXT: the output of the last run has it; told TEXT: its messages have.
holds() { grep -q -- "$1" "$tmp/out" || fail "no \"$1\" in the output"; }
told() { grep -q -- "$1" "$tmp/err" || fail "no message \"$1\""; }

for sample in "$samples"/*.flv; do
    name=$tmp/$(basename "$sample" .flv)
    expect 0 frames -v --demuxer "$sample"; expect 0 seek --json --mode all "$sample" 0 1.2 0:00:02.5 1:00:00
    # What comes through the plugin is what the demuxer reads, but for the unit of time.
    expect 0 frames --json "$sample"
    sed -n 's/.*"track":\([01]\),.*"size":\([0-9]*\),.*/\1 \2/p' "$tmp/out" |
        awk '{ n[$1]++; b[$1] += $2 } END { for (t = 0; t in n; t++) print t, n[t], b[t] }' >"$tmp/sums"
    expect 0 frames --summary "$sample"; sed 1d "$tmp/out" | awk '{ print $1, $2, $3 }' | cmp - "$tmp/sums" || fail "other sums"
    expect 0 frames --json "$sample"
    sed 's/"track"/"stream"/; s/_us":\([1-9][0-9]*\),"dur/_us":\10,"dur/; s/"time_us"/"time"/
        s/"duration_us":[a-z0-9]*,"size"/"length"/' "$tmp/out" >"$name.plugin"
    expect 0 frames --demuxer --json "$sample"
    sed 's/"next_time":[0-9]*,//' "$tmp/out" | cmp - "$name.plugin" || fail "the plugin's frames differ"
    for cut in 300 1000 5000; do head -c $cut "$sample" >"$name.$cut.bad"; done
    for start in 13 40 400; do
        cp "$sample" "$name.at$start.bad" && printf '\377\177\000\200\377\377\377\012' | dd of="$name.at$start.bad" bs=1 seek=$start conv=notrunc 2>"$tmp/err"
    done
    for bad in "$name".300.bad "$name".1000.bad "$name".at400.bad; do expect "0 1" frames --json "$bad"; done
    for bad in "$name".5000.bad "$name".at40.bad; do expect "0 1" seek --json --mode all "$bad" 0 0.5 1; done
    # Without the last PreviousTagSize the last frame cannot be read; a listing has to say so.
    head -c -4 "$sample" >"$name.bad"; expect 1 frames --json "$name.bad"; told "reading ended after"
done
for length in 0 3 8 13 30; do
    head -c $length "$sample" >"$tmp/bad"; for c in info frames "frames --demuxer"; do expect 1 $c --json "$tmp/bad"; done
done
expect 1 info "$tmp"/*.bad; expect 0 info "$samples"/*.flv; holds "codec not supported by the device"
expect 1 info --json "$tmp"/*.bad; expect 0 info --json "$samples"/*.flv; holds '"framework":{"name":"ZoFLVExtractor"'
expect 2 info --json "$tmp/bad" "$sample" "$tmp/none" # the worst code; the sound one is shown
[ "$(wc -l <"$tmp/out")" -eq 3 ] && [ "$(wc -l <"$tmp/err")" -eq 2 ] || fail "not three and two lines"
holds 'bad","status":"refused","reason":"[^"]'; holds '"status":"ok","reason":null'; holds 'none","status":"failed"'
# A property that the metadata do not have is null; a name that nobody knows is shown, escaped.
odd() { # onMetaData: duration NaN, width 0, "x<ESC>": "<CSI>y", an index whose only offset, a double, begins with $1
    printf 'FLV\1\1\0\0\0\011\0\0\0\0\022\0\0\203\0\0\0\0\0\0\0\2\0\012onMetaData\010\0\0\0\4'
    printf '\0\010duration\0\177\370\0\0\0\0\0\0\0\005width\0\0\0\0\0\0\0\0\0\0\002x\033\2\0\003\302\233y'
    printf "\\0\\011keyframes\\3\\0\\015filepositions\\012\\0\\0\\0\\1\\0\\100$1\\0\\0\\0\\0\\0\\0\\005times\\012\\0\\0\\0\\1"
    printf '\0\0\0\0\0\0\0\0\0\0\0\011\0\0\011\0\0\0\216\011\0\0\022\0\0\0\0\0\0\0\022\0\0\200\0\210\0\004\200\010\0\0\0\0\0\0\0\0\0\0\0\0\035'
}
odd '\217\100' >"$tmp/odd"; expect 1 info --json --index "$tmp/odd"
holds '"duration":null,"last_timestamp":null'; holds '"width":0.0,"height":null'; holds '"rejected","reason":"its first offset, 1000, lies past'
holds '"entries":\[{"time_us":0,"offset":1000}\]'; holds '"x.u001b":'; expect 1 info --all "$tmp/odd"; holds '^    x.x1b .*.xc2.x9by$'
odd '\060\0' >"$tmp/odd"; expect 0 info "$tmp/odd"; holds 'index    not used: at its first offset, 16, there is no tag'

expect 0 seek --json --mode all --track 1 "$samples/avc_aac_index.flv" 2.6
[ "$(sed 's/.*"landed_us":\([0-9]*\),.*"reads":\([0-9]*\),.*/\1 \2/' "$tmp/out" | tr '\n' ' ')" = \
    "2000000 1 3000000 1 3000000 1 2000000 1 " ] || fail "other landings or costs"
# A picture of 4096 x 2304 pixels in H.263.
printf 'FLV\1\1\0\0\0\011\0\0\0\0\011\0\0\022\0\0\0\0\0\0\0\022\0\0\200\0\210\0\004\200\010\0\0\0\0\0\0\0\0\0\0\0\0\035' \
    >"$tmp/large"; expect 0 info "$tmp/large"; holds "picture larger than the device's limit"
printf '{"name": "small", "mime_types": ["video/avc"], "largest_landscape": {"width": 191, "height": 112}}' >"$tmp/small.json"
expect 0 info --device "$tmp/small.json" "$samples/avc_aac_index.flv"; holds "picture larger than the device's limit"
sed 's/191/192/; s/avc/vp8/' "$tmp/small.json" >"$tmp/vp8.json"; expect 0 info --device "$tmp/vp8.json" "$samples/avc_aac_index.flv"
holds "codec not supported by the device"
expect 0 info --device "$tmp/small.json" "$samples/audio_aac.flv"; holds "mono; not played: codec not supported"
expect 0 info --json "$samples/h263_mp3.flv"; cp "$tmp/out" "$tmp/built-in"; sed -n '/^```json/,/^```$/{//!p}' "$samples/../docs/device.md" >"$tmp/documented"
expect 0 info --json --device "$tmp/documented" "$samples/h263_mp3.flv"; cmp "$tmp/out" "$tmp/built-in" || fail "the default is not as documented"
for change in 's/.*//' 's/{"w/{{"w/' 's/"name"/"names"/' 's/"video/"text/' 's/191/0/' 's/191/1e9/' 's/, "height": 112//' 's/\[.*\]/{}/'; do
    sed "$change" "$tmp/small.json" >"$tmp/wrong.json"; expect 2 info --device "$tmp/wrong.json" "$sample"; told "no device profile"
done
# The walk over the whole file, past what the demuxer ends at.
{ cat "$sample"; head -c 500 /dev/zero; } >"$tmp/tail"; expect 0 tags "$tmp/tail"; holds "lost  *500 bytes: zeros"
expect 0 info --scan "$tmp/tail"; holds "500 bytes in 1 range"; expect 0 info --scan --json "$tmp/tail"; holds '"lost":{"ranges":1,"bytes":500'
expect 0 tags --json "$samples/avc_slices.flv"; expect 0 tags --script --json "$samples"/*.flv; holds '"name":"duration","type":"number"'
expect 0 tags --script "$sample"; holds "duration: number"; expect 1 tags --json "$0"; told 'begins with the text "#!/bin/sh"'; echo hello >"$tmp/hello"; expect 1 info "$tmp/hello"; told 'the text "hello"'; expect 2 tags "$tmp/none" "$tmp/folder"
: >"$tmp/nothing"; expect 1 tags "$tmp/nothing"; holds "end, empty file"; told "it is empty"
head -c 13 "$sample" >"$tmp/header"; expect 1 tags "$tmp/header"; holds "end, after the header"; told "zoflv check tells"
# Each file has an object, whatever becomes of it.
for c in frames "frames --demuxer" "frames --summary" seek "seek 1"; do
    expect 2 $c --json "$0" "$tmp/none" "$sample"; told "begins with the text"
    grep -q "$0\",\"status\":\"refused\",\"reason\":\"[^\"]" "$tmp/out" || fail "no object of a refused file"
    holds 'none","status":"failed","reason":"[^"]'; holds "$sample"
done
expect 2 tags --json "$tmp/none"; holds 'none","status":"failed"'
expect 1 info --scan "$tmp/bad"; holds "counted over the whole file" # of a refused file too
{ # two frames of PCM, the second larger than the track's buffer
    printf 'FLV\1\4\0\0\0\011\0\0\0\0\010\0\0\002\0\0\0\0\0\0\0\066\1\0\0\0\015\010\011\0\0\0\0\0\0\0\0\0\066'
    head -c 589823 /dev/zero; printf '\0\011\0\013'
} >"$tmp/long"; expect 1 frames --json "$tmp/long"; told "ended after 1 frames: larger"
for path in "$tmp/folder" "$tmp/pipe" "$tmp/none" "$tmp/a
b"; do for c in info frames "frames --demuxer"; do expect 2 $c "$path"; done; expect 2 seek "$path" 1; done
expect 0 frames --demuxer --plugin "$tmp/none" "$sample"; expect 2 info --plugin "$sample" "$sample"; told "cannot be loaded"
for good in --version --help "seek --help"; do expect 0 $good; done
for usage in "" bogus info frames "frames $sample --stream 0" "frames $sample --track 1" "info -x $sample" \
    "seek $sample 1:60" "seek $sample 1 --mode x" "seek $sample 300000000" "frames $sample --plugin $tmp/none"; do
    expect 2 $usage # split into words
done
# A verdict for each file, the worst exit code, and a summary after several.
head -c 30000 "$samples/avc_aac_index.flv" >"$tmp/half"; expect 0 check --json "$samples/avc_aac_index.flv"; holds '"verdict":{"status":"sound","cause":null'
shown="check of several"; "$zoflv" check --json "$samples/audio_mp3.flv" "$samples/audio_speex.flv" "$tmp/none" "$tmp/half" >"$tmp/out" 2>"$tmp/err"
[ $? -eq 2 ] || fail "not the worst code"; cat "$tmp/out" >>"$tmp/json"
[ "$(sed 's/.*"status":"\([a-z]*\)".*/\1/' "$tmp/out" | tr '\n' ' ')" = "sound refused failed partial " ] || fail "other verdicts"
told "^1 sound, 1 partial, 1 refused, 1 could not be read$"; told "none: cannot be opened"
"$zoflv" check "$tmp/half" >"$tmp/out" 2>"$tmp/err"; [ $? -eq 1 ] && [ ! -s "$tmp/err" ] || fail "not 1 and silent"; holds "^$tmp/half: partial: .* (tag.cut)$"
expect 0 seek --json "$samples/avc_aac_index.flv" --mode all --max-miss 3000 --max-reads 99; holds '"ideal_us":.*"hit":true'
[ "$(wc -l <"$tmp/out")" -eq 160 ] || fail "not five times 32 seeks"
expect 1 seek --max-reads 1 "$samples/avc_aac_index.flv"; told "need more than 1 file calls"
expect 1 seek "$samples/audio_speex.flv"; told "no track plays"; expect 2 seek --max-miss 1 "$sample" 1
# An extracted file is there whole or not at all, and replaces nothing unasked.
avc=$samples/avc_aac_index.flv
mkdir "$tmp/x" && expect 0 extract --track 1 -o "$tmp/x/a" "$avc"; cp "$tmp/x/a" "$tmp/whole"
expect 0 extract --track 1 -o - "$avc"; cmp "$tmp/out" "$tmp/whole" || fail "stdout has other bytes"
expect 2 extract --track 0 -o "$tmp/x/a" "$avc"; told "a exists already"; cmp "$tmp/x/a" "$tmp/whole" || fail "replaced"
chmod 600 "$tmp/x/a"; expect 0 extract --track 0 -o "$tmp/x/a" --force "$avc"
[ "$(stat -c %a "$tmp/x/a")" = 600 ] && ! cmp -s "$tmp/x/a" "$tmp/whole" || fail "not replaced, or other permissions"
expect 0 extract --track 1 --raw -o "$tmp/x/r" "$avc"
[ "$(awk -F, 'NR > 1 && $1 == n { n += $2 } END { print n }' "$tmp/x/r.csv")" -eq "$(stat -c %s "$tmp/x/r")" ] || fail "the table does not fit"
# A track that ends before its last frame says where; the other is whole.
head -c 30000 "$avc" >"$tmp/cut"; expect 1 frames --json "$tmp/cut"; cp "$tmp/out" "$tmp/ends"
[ "$(grep -c '"end":{"complete":false,"at_byte":29[0-9]*,"reason":"[^"]' "$tmp/out")" -ge 1 ] || fail "no end told"
expect 0 frames --json --track 1 "$avc" "$avc"; [ "$(grep -c '"end":{"complete":true,"at_byte":null,"reason":null}' "$tmp/out")" -eq 2 ] || fail "not two ends"
[ "$(grep -c '"keyframe":true' "$tmp/out")" -eq 16 ] || fail "not twice 8 keyframes"
expect 1 frames --summary "$avc" "$tmp/cut" "$avc"; [ "$(grep -c '^ *[01] ' "$tmp/out")" -eq 6 ] || fail "not two lines for each file"
(ulimit -f 8; "$zoflv" extract --track 1 -o "$tmp/x/big" "$avc" 2>/dev/null) && fail "a full disk was not noticed"
expect 1 extract --track 1 -o "$tmp/x/part" "$tmp/cut"; told "partial keeps them"
expect 2 extract -o "$tmp/x/n" "$avc"; told "track N picks one"; expect 2 extract --track 1 -o "$avc" --force "$avc"; told "replace it"
expect 2 extract --track 1 -o "$tmp/none/n" "$avc"; expect 2 extract --track 1 -o "$tmp/x" "$avc"; expect 2 extract --track 1 -o /dev/full "$avc"
[ "$(ls -A "$tmp/x" | tr '\n' ' ')" = "a r r.csv " ] || fail "left over: $(ls -A "$tmp/x")"
expect 1 extract --track 1 --partial -o "$tmp/x/part" "$tmp/cut"; [ -s "$tmp/x/part" ] || fail "not kept"

# A page is there whole or not at all; several files make a folder with an index, whatever becomes of one.
mkdir "$tmp/r" && expect 0 report -o "$tmp/r/a.html" "$avc"; expect 0 report -o - "$avc"; holds '<svg class="plot"'
cmp "$tmp/out" "$tmp/r/a.html" || fail "stdout has another page"
expect 2 report -o "$tmp/r/a.html" "$tmp/cut"; told "exists already"; grep -q "class=.status sound" "$tmp/r/a.html" || fail "replaced"
expect 0 report --force -o "$tmp/r/a.html" "$tmp/bad"; grep -q '<strong class="status refused">' "$tmp/r/a.html" || fail "not replaced"
for wrong in "$avc" "-o $tmp/none/n $avc" "-o $tmp/r/n $tmp/none" "-o /dev/full $avc" "-o - $avc $tmp/cut" \
    "-o $tmp/r/a.html $avc $tmp/cut" "-o $tmp/r/new/ $tmp/none --plugin $tmp/none" "--force -o $avc $avc"; do
    expect 2 report $wrong
done
(ulimit -f 8; "$zoflv" report -o "$tmp/r/big" "$avc" 2>/dev/null) && fail "a full disk was not noticed"
expect 2 report -o "$tmp/r/all" "$avc" "$tmp/none" "$tmp/cut"; told "none: cannot be opened"
[ "$(ls -A "$tmp/r/all" | tr '\n' ' ')" = "0001-avc_aac_index.html 0003-cut.html index.html " ] || fail "other pages: $(ls -A "$tmp/r/all")"
[ "$(sed -n 's/.*href="\([^"]*\)".*class="status \([a-z]*\)".*/\1 \2/p' "$tmp/r/all/index.html" | tr '\n' ' ')" = \
    "0001-avc_aac_index.html sound 0003-cut.html partial " ] || fail "another index"
grep -q '3 files: 1 sound, 1 partial, 1 failed' "$tmp/r/all/index.html" || fail "no summary"
expect 2 report -o "$tmp/r/all" "$avc" "$tmp/cut"; told "index.html exists already"; expect 0 report --force -o "$tmp/r/all" "$avc" "$tmp/cut"
[ "$(ls -A "$tmp/r" | tr '\n' ' ')" = "a.html all " ] || fail "left over: $(ls -A "$tmp/r")"

# A repaired file is there whole or not at all; the file itself is never touched.
mkdir "$tmp/m" && cp "$tmp/cut" "$tmp/m/in" && ln "$tmp/m/in" "$tmp/m/same" && ln -s in "$tmp/m/link"
expect 0 repair --dry-run --json "$tmp/m/in"; holds '"outcome":"would_repair"'; [ ! -e "$tmp/m/out" ] || fail "written"
expect 0 repair --json -o "$tmp/m/out" "$tmp/m/in"; holds '"outcome":"repaired"'; cp "$tmp/m/out" "$tmp/whole"
expect 0 check "$tmp/m/out"; expect 2 repair -o "$tmp/m/out" "$tmp/m/in"; told "out exists already"
printf x >"$tmp/m/out" && expect 0 repair --force -o "$tmp/m/out" "$tmp/m/in"; cmp "$tmp/m/out" "$tmp/whole" || fail "other bytes"
expect 0 repair --always -o "$tmp/m/again" "$tmp/m/out"; cmp "$tmp/m/again" "$tmp/whole" || fail "repaired again it differs"; rm "$tmp/m/again"
shown="repair of a sound file"; "$zoflv" repair --json -o "$tmp/m/none" "$tmp/m/out" >"$tmp/out" 2>"$tmp/err"; [ $? -eq 3 ] || fail "not 3"
cat "$tmp/out" >>"$tmp/json"; holds '"outcome":"nothing_to_repair"'
for bad in "$samples/audio_speex.flv" "$0"; do
    shown="repair $bad"; "$zoflv" repair --json -o "$tmp/m/none" "$bad" >"$tmp/out" 2>"$tmp/err"; [ $? -eq 1 ] || fail "not 1"
    cat "$tmp/out" >>"$tmp/json"; holds '"outcome":"not_mended","reason":"[^"]'
done
holds '"code":"file.no_header"'
for wrong in "$tmp/m/in" "-o $tmp/m/same --force $tmp/m/in" "-o $tmp/m/link --force $tmp/m/in" "-o - $tmp/m/in" "-o /dev/full $tmp/m/in" \
    "-o $tmp/none/n $tmp/m/in" "-o $tmp/m $tmp/m/in" "--json -o $tmp/m/n $tmp/none" "-o $tmp/m/n"; do expect 2 repair $wrong; done
(ulimit -f 8; "$zoflv" repair -o "$tmp/m/big" "$tmp/m/in" >"$tmp/out" 2>&1) && fail "a full disk was not noticed"
for at in 1 2 3 4 5 6 7 8; do # ended while it works
    timeout --signal=TERM 0.0$at "$zoflv" repair -o "$tmp/m/ended" "$tmp/m/in" >"$tmp/out" 2>&1
    [ ! -e "$tmp/m/ended" ] || cmp "$tmp/m/ended" "$tmp/whole" || fail "a part of it"; rm -f "$tmp/m/ended"
done
[ "$(ls -A "$tmp/m" | tr '\n' ' ')" = "in link out same " ] || fail "left over: $(ls -A "$tmp/m")"; cmp "$tmp/m/in" "$tmp/cut" || fail "touched"

# What to write instead, in one line.
cp "$sample" "$tmp/-odd.flv"; cd "$tmp" || exit 1
while read -r text usage; do
    expect 2 $usage; told "$(echo "$text" | tr _ ' ')"; [ "$(wc -l <"$tmp/err")" -eq 1 ] || fail "not one line"
done <<EOF
zoflv_info_FILE
did_you_mean_"zoflv_info $sample
no_command_"bogus" bogus
is_./-odd.flv info -odd.flv
is_./-odd.flv -odd.flv
no_option_-x info -x $sample
from_0_on_is_needed,_not_"-1" frames --track -1 $sample
from_0_on_is_needed,_not_"-1" frames --track=-1 $sample
"-5"_is_no_time seek $sample -5
"1:60"_is_no_time seek $sample 1:60
no_file_named seek 1
--seeks_needs_a_value check $sample --seeks
previous,_next seek $sample 1 --mode x
EOF
for c in info check report repair frames seek extract tags; do
    expect 0 $c --help
    awk '/^Examples:/ {e = NR} /^Usage:/ {u = NR} /^Exit codes:/ {x = NR} END {exit !(e && e < u && u < x)}' "$tmp/out" || fail "not examples first"
done
"$zoflv" frames "$sample" >/dev/full 2>"$tmp/err"; [ $? -eq 2 ] || fail "full disk not noticed"
# Every JSON line has to be one whole value; cmake reads them as an array.
{ echo '['; sed '$!s/$/,/' "$tmp/json"; echo ']'; } >"$tmp/array"
printf '%s\n' 'file(READ "${F}" t)' 'string(JSON n LENGTH "${t}")' 'message("count=${n}")' >"$tmp/json.cmake"
cmake -DF="$tmp/array" -P "$tmp/json.cmake" 2>&1 | grep -qx "count=$(wc -l <"$tmp/json")" || fail "broken JSON"
exit $((failed > 0))
