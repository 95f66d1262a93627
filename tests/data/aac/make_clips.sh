#!/bin/sh
# Makes the short AAC clips the AAC header tests read, and records what
# ffprobe reports about them in two tables beside them:
#   adts.txt  file sample_rate channels profile packet_size...
#             (an ADTS packet is a whole frame, header included, so the
#             sizes are the chain of aac_frame_length values)
#   asc.txt   file sample_rate channels profile extradata_hex
# Run from anywhere; needs ffmpeg and ffprobe. The outputs are committed, so
# this only needs re-running to add clips.
set -eu
cd "$(dirname "$0")"

probe_stream() {
    ffprobe -v error -select_streams a:0 \
        -show_entries stream=sample_rate,channels,profile -of default=nw=1 "$1" |
        awk -F= '{ v[$1] = $2 } END { printf "%s %s %s", v["sample_rate"], v["channels"], v["profile"] }'
}

# name rate channels encoder-profile bitrate
adts_clip() {
    ffmpeg -hide_banner -loglevel error -f lavfi \
        -i "sine=frequency=440:sample_rate=$2:duration=0.2" -ac "$3" \
        -c:a aac -profile:a "$4" -b:a "$5" -f adts -y "$1"
    sizes=$(ffprobe -v error -show_entries packet=size -of csv=p=0 "$1" | tr '\n' ' ')
    echo "$1 $(probe_stream "$1") $sizes" | sed 's/ *$//' >> adts.txt
}

: > adts.txt
adts_clip adts_48000_2_main.aac 48000 2 aac_main 32k
adts_clip adts_44100_1_lc.aac 44100 1 aac_low 24k
adts_clip adts_22050_2_lc.aac 22050 2 aac_low 24k
adts_clip adts_8000_1_lc.aac 8000 1 aac_low 12k
adts_clip adts_32000_6_lc.aac 32000 6 aac_low 48k

ffmpeg -hide_banner -loglevel error -f lavfi \
    -i "sine=frequency=440:sample_rate=44100:duration=0.2" -ac 2 \
    -c:a aac -b:a 32k -y asc_44100_2_lc.mp4
hex=$(ffprobe -v error -select_streams a:0 -show_entries stream=extradata -show_data \
    -of default=nw=1 asc_44100_2_lc.mp4 | sed -n 's/^[0-9a-f]*: \(\([0-9a-f]\{2,4\} \)*\).*/\1/p' | tr -d ' \n')
echo "asc_44100_2_lc.mp4 $(probe_stream asc_44100_2_lc.mp4) $hex" > asc.txt
