#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
#
# interop.sh ZOFLV SAMPLE.flv...: compares each stream's frames, their times and lengths, and the tags
# and totals of a walk over the whole file, with the packets that ffprobe shows. 77, for "skipped", without ffprobe.
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
            sed "/\"end\":/d; s/.*\"time\":\([0-9]*\),.*\"length\":\([0-9]*\),.*/$type,\1,\2/" >>"$tmp/ours"
    done <"$tmp/streams"
    ffprobe -v error -show_entries packet=codec_type,dts,size -of csv=p=0 "$sample" |
        awk -F, '{ printf "%s,%d,%d\n", $1, $2 * 10000, $3 }' | sort -s -t, -k 1,1 >"$tmp/theirs"
    # And the walk over the whole file, in the file's order: times, sizes, places, keyframes.
    "$zoflv" tags --json "$sample" | sed -n '/"packet":"frame"/s/.*"offset":\([0-9]*\),"type":"\([a-z]*\)".*"dts_us":\([-0-9]*\),"pts_us":\([-0-9]*\),.*"keyframe":\([a-z]*\),"payload_size":\([0-9]*\),.*/\2,\4,\3,\6,\1,\5/p' |
        awk -F, '{ key = $1 == "audio" || $6 == "true"
            printf "%s,%d,%d,%d,%d,%s\n", $1, $2 / 1000, $3 / 1000, $4, $5, key ? "K" : "_" }' >"$tmp/tags"
    ffprobe -v error -show_entries packet=codec_type,pts,dts,size,pos,flags -of csv=p=0 "$sample" |
        awk -F, '{ print $1 "," $2 "," $3 "," $4 "," $5 "," substr($6, 1, 1) }' >"$tmp/packets"
    "$zoflv" info --scan --json "$sample" | tr '{' '\n' |
        sed -n 's/^"tags":.*"frames":\([0-9]*\),.*"min_dts_us":\([0-9]*\),"max_dts_us":\([0-9]*\),.*/\1 \2 \3/p; s/^"count":\([0-9]*\),.*"shortest_us".*/keys \1/p' >"$tmp/scan"
    awk -F, '{ n[$1]++; if (n[$1] == 1 || $3 < min[$1]) min[$1] = $3; if (n[$1] == 1 || $3 > max[$1]) max[$1] = $3; key += $1 == "video" && $6 == "K" }
        END { if (n["video"]) print n["video"], min["video"] * 1000, max["video"] * 1000 "\nkeys " key
              if (n["audio"]) print n["audio"], min["audio"] * 1000, max["audio"] * 1000 }' "$tmp/packets" >"$tmp/totals"
    cat "$tmp/packets" "$tmp/totals" >>"$tmp/theirs"
    cat "$tmp/tags" "$tmp/scan" >>"$tmp/ours"
    diff -u --label "$sample: ffprobe" --label zoflv "$tmp/theirs" "$tmp/ours" | head -n 20 >"$tmp/diff"
    if [ -s "$tmp/diff" ] || [ ! -s "$tmp/ours" ]; then
        cat "$tmp/diff"
        echo "FAIL: $sample"
        status=1
    else
        echo "$sample: $(wc -l <"$tmp/tags") frames agree"
    fi
done
exit $status
