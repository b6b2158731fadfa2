#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
#
# archives_test.sh COMMAND SOURCE_DIR TEMP [--update]: runs the commands of docs/archives.md over the samples and
# damaged copies, and holds their output against the document; then interruption, time limit and CSV.
# TEMP is emptied. --update writes the outputs into the document. Exit code 77: a program is missing.
set -u
export LC_ALL=C.UTF-8 HOME=$3/home
command=$(realpath "$1") source=$(realpath "$2") tmp=$3 status=0
for program in parallel jq sqlite3; do
    command -v "$program" >/dev/null || { echo "skipped: no $program"; exit 77; }
done
fail() { echo "archives_test: $*" >&2; status=1; }

rm -rf "$tmp" && mkdir -p "$tmp/bin" "$tmp/home" "$tmp/archive/damaged" && cd "$tmp" || exit 1
ln -s "$command" bin/zoflv
export PATH=$tmp/bin:$PATH
cp "$source"/samples/*.flv archive
for sample in avc_aac_index h263_mp3 audio_mp3; do
    head -c 15000 "$source/samples/$sample.flv" >"archive/damaged/$sample.cut.flv"
done
{ head -c 5000 archive/h263_mp3.flv; head -c 3000 /dev/zero; tail -c +8001 archive/h263_mp3.flv; } >archive/damaged/hole.flv
{ printf 'FLV\1\0'; tail -c +6 archive/avc_aac_index.flv; } >archive/damaged/flags.flv
printf 'no FLV at all' >archive/damaged/text.flv
# A duration of 0.5 s, made by somebody.
{
    printf 'FLV\1\4\0\0\0\011\0\0\0\0\022\0\0\074\0\0\0\0\0\0\0\2\0\012onMetaData\010\0\0\0\2'
    printf '\0\010duration\0\077\340\0\0\0\0\0\0\0\007encoder\2\0\010=made, 1\0\0\011\0\0\0\107'
    tail -c +14 archive/audio_mp3.flv
} >archive/damaged/short.flv

# The document once more, with what its commands print.
while IFS= read -r line; do
    printf '%s\n' "$line"
    case $line in
    '```sh run')
        commands=
        while IFS= read -r line && printf '%s\n' "$line" && [[ $line != '```' ]]; do commands+=$line$'\n'; done
        output=$(eval "$commands" 2>>stderr </dev/null)
        ;;
    '```text output')
        while IFS= read -r line && [[ $line != '```' ]]; do :; done
        printf '%s\n```\n' "$output"
        ;;
    esac
done <"$source/docs/archives.md" >document
if [[ ${4-} == --update ]]; then
    cp document "$source/docs/archives.md"
else
    diff -u "$source/docs/archives.md" document >&2 || fail "docs/archives.md differs: see $0 --update"
fi
[[ $(grep -c '^```sh run' document) -ge 14 ]] || fail "few commands in the document"
cat stderr messages | grep . >&2 && fail "messages of the commands"

# Stopped in the middle, and gone on with: every file has one record.
resumed=(parallel -0 -n 1 -j 2 --sshlogin : --workdir . --joblog part.log --resume zoflv check --quiet --json :::: names)
touch part.log part.jsonl out
"${resumed[@]}" 2>>errors >>part.jsonl &
for ((i = 0; i < 300 && $(wc -l <part.log) < 4; ++i)); do sleep 0.1; done
kill -TERM $!
wait
echo "$(wc -l <part.jsonl) of $(wc -l <results.jsonl) files before the interruption"
"${resumed[@]}" 2>>errors >>part.jsonl
cmp <(sort part.jsonl) <(sort results.jsonl) || fail "other records after an interruption"

# A record is there as soon as it is known: before the next name is.
mkfifo in
zoflv check --quiet --json --files0-from - <in >out 2>/dev/null &
exec 3>in
printf 'archive/audio_mp3.flv\0' >&3
for ((i = 0; i < 100 && $(wc -l <out) == 0; ++i)); do sleep 0.1; done
[[ $(wc -l <out) == 1 ]] || fail "no record before the end of the list"
exec 3>&-
wait

# A file too large for the time, in front of one that is not.
cp archive/video_only.flv large && truncate -s 40G large
zoflv check --json --timeout 1 large archive/audio_mp3.flv >out 2>err
[[ $? == 1 && $(jq -r .verdict.status out | xargs) == "timeout sound" ]] || fail "no timeout: $(cat out err)"
grep -q '1 sound, 0 partial, 0 refused, 1 not done in time' err || fail "no summary: $(cat err)"

# Names that would be formulas or break a row.
names=('=1+1,"x".flv' '@a.flv' $'-a\n.flv' $'\tb.flv' 'a b.flv')
for name in "${names[@]}"; do cp archive/damaged/short.flv "./$name"; done
printf '%s\0' "${names[@]}" | zoflv check -q --csv --files0-from - | cut -d , -f 1-3 >out
printf '%s\n' file,status,cause "\"'=1+1,\"\"x\"\".flv\",partial" "'@a.flv,partial,duration.short" \
    "'-a\\x0a.flv,partial,duration.short" "'\\x09b.flv,partial,duration.short" '"a b.flv",partial,duration.short' | diff - out >&2 || fail "other cells"
printf '%s\n' a b | zoflv check --files0-from - 2>err; [[ $? == 2 ]] && grep -q print0 err || fail "a list of lines is taken"
exit "$status"
