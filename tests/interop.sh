#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
#
# interop.sh ZOFLV SAMPLE.flv...: compares each stream's frames, their times and lengths with the
# packets that ffprobe shows. 77, for "skipped", without ffprobe.
#
# Both leave configuration tags out and give milliseconds; ffprobe's decoding time is the tag's. A NAL
# unit's length field of 4 bytes, which ffprobe counts, is as long as its start code.
set -eu
zoflv=$1
shift
command -v ffprobe >/dev/null || { echo "skipped: no ffprobe"; exit 77; }
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
status=0
for sample in "$@"; do
    : >"$tmp/ours"
    "$zoflv" info --json "$sample" | grep -o '"index":[01],"type":"[a-z]*"' | tr -dc '01a-z\n' |
        sed 's/^index\([01]\)type/\1 /' | sort -k 2 >"$tmp/streams"
    while read -r stream type; do
        "$zoflv" frames --demuxer --json --stream "$stream" "$sample" |
            sed "s/.*\"time\":\([0-9]*\),.*\"length\":\([0-9]*\),.*/$type,\1,\2/" >>"$tmp/ours"
    done <"$tmp/streams"
    ffprobe -v error -show_entries packet=codec_type,dts,size -of csv=p=0 "$sample" |
        awk -F, '{ printf "%s,%d,%d\n", $1, $2 * 10000, $3 }' | sort -s -t, -k 1,1 >"$tmp/theirs"
    diff -u --label "$sample: ffprobe" --label zoflv "$tmp/theirs" "$tmp/ours" | head -n 20 >"$tmp/diff"
    if [ -s "$tmp/diff" ] || [ ! -s "$tmp/ours" ]; then
        cat "$tmp/diff"
        echo "FAIL: $sample"
        status=1
    else
        echo "$sample: $(wc -l <"$tmp/ours") frames agree"
    fi
done
exit $status
