#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
#
# extract_interop.sh ZOFLV TEMP SAMPLE.flv...: what ffmpeg decodes from each extracted track is what it
# decodes from the FLV file itself. 77, for "skipped", without ffmpeg.
#
# The frames' digests are compared, not their times: elementary streams have none. WAV has no frames
# either, so that of PCM and G.711 all samples are digested at once.
set -eu
zoflv=$1 tmp=$2
shift 2
command -v ffmpeg >/dev/null || { echo "skipped: no ffmpeg"; exit 77; }
rm -rf "$tmp" && mkdir -p "$tmp"
status=0

# decoded OPTIONS INPUT MAP: a digest a line.
decoded() {
    ffmpeg -v error -nostdin $1 -i "$2" -map "$3" -fps_mode passthrough -f "$form" - | sed '/^#/d; s/.*, *//'
}

for sample in "$@"; do
    "$zoflv" info --json "$sample" >"$tmp/info"
    track=0
    for kind in $(grep -o '"mime":"[a-z]*/' "$tmp/info" | sed '1d; s/.*"\(.\).*/\1/'); do
        code=$(grep -o '"codec":"[^"]*"' "$tmp/info" | sed -n "$((track + 1))s/.*:\"\(.*\)\"/\1/p")
        out=$tmp/$(basename "$sample" .flv).$track form=framemd5 options=
        "$zoflv" extract --track $track -o "$out" "$sample"
        case $code in
        *264*) options="-f h264" ;;
        AAC) options="-f aac" ;;
        MPEG*) options="-f mp3" ;;
        lpcm | llpc | alaw | mlaw) options="-f wav" form=md5 ;;
        *) [ "$(awk -F, 'NR > 1 { n += $2 } END { print n }' "$out.csv")" -eq "$(stat -c %s "$out")" ] || status=1; options=none ;;
        esac
        if [ "$options" != none ]; then
            decoded "" "$sample" "0:$kind:0" >"$out.flv.txt"
            decoded "$options" "$out" 0:0 >"$out.txt"
            [ -s "$out.txt" ] && diff "$out.flv.txt" "$out.txt" >"$out.diff" || { echo "FAIL: $out"; head -n 5 "$out.diff"; status=1; }
            echo "$sample: track $track, $code: $(wc -l <"$out.txt") digests agree"
        fi
        track=$((track + 1))
    done
done
exit $status
