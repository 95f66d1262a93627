#!/bin/sh
# Makes the H.264 test clips of this folder and the tables beside them.
#
#   <clip>.h264    Annex B elementary stream encoded by x264 from ffmpeg's testsrc
#   <clip>.fields  header fields as ffmpeg's trace_headers filter prints them:
#                  the first SPS ("sps."), the first PPS ("pps."), the first
#                  slice header of each slice type ("slice_i.", "slice_p.",
#                  "slice_b."), the first P slice with an explicit weight
#                  ("slice_pw.") and the first slice that reorders list 0
#                  ("slice_reorder."), one "<block>.<syntax element> <value>"
#                  a line. HRD fields carry "nal_hrd." or "vcl_hrd." after the
#                  block; delta_scale runs are turned into the scaling list
#                  they code ("pps.ScalingList4x4[i][j]", "...8x8[i][j]");
#                  "<slice>.slice_index" is the slice unit's ordinal in the
#                  stream. A syntax element that repeats in a block keeps its
#                  last value.
#   <clip>.avcc    the avcC box (size and type included) that ffmpeg writes
#                  when it muxes the clip into MP4
#   long_startcodes.h264  the slices4 clip with every 3-byte start code widened
#                  to 4 bytes
#
# Needs Debian's ffmpeg and x264 and python3. Run from anywhere; the output
# replaces the files in this folder. Encodes are single-threaded so that a
# rerun gives the same bytes.
set -eu

here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

source_clip() { # name WxH frames [pix_fmt]
    ffmpeg -hide_banner -loglevel error -y -f lavfi \
        -i "testsrc=size=$2:rate=25" -frames:v "$3" \
        -pix_fmt "${4:-yuv420p}" -strict -1 -f yuv4mpegpipe "$work/$1.y4m"
}

encode() { # clip source x264-options...
    clip=$1 src=$2
    shift 2
    x264 --quiet --threads 1 --no-progress "$@" -o "$here/$clip.h264" "$work/$src.y4m" 2>/dev/null
}

source_clip s120x90 120x90 10
source_clip s128x96 128x96 12
source_clip s160x120 160x120 10
source_clip s64x48_444p10 64x48 4 yuv444p10le
source_clip s100x70_422p10 100x70 6 yuv422p10le
source_clip s64x48_444p 64x48 4 yuv444p

# Custom scaling lists (put into the PPS by the encoder)
ramp16=$(python3 -c "print(','.join(str(6 + 2 * i) for i in range(16)))")
saw16=$(python3 -c "print(','.join(str(16 + (i * 5) % 20) for i in range(16)))")
ramp64=$(python3 -c "print(','.join(str(8 + i) for i in range(64)))")

encode baseline_cavlc s120x90 --profile baseline --frames 10
encode main_cabac_b s128x96 --profile main --bframes 3 --b-adapt 0 --b-pyramid none --ref 3 --frames 12
encode high_cqm s160x120 --profile high --8x8dct --bframes 2 --b-adapt 0 --b-pyramid normal \
    --cqm4iy "$ramp16" --cqm4ic "$saw16" --cqm4p "$ramp16" --cqm8i "$ramp64" --frames 10
encode mbaff s128x96 --profile high --tff --bframes 1 --b-adapt 0 --frames 8
encode interlaced_frames s128x96 --profile main --fake-interlaced --bframes 1 --b-adapt 0 --frames 8
encode slices4 s128x96 --profile main --slices 4 --bframes 1 --b-adapt 0 --frames 6
encode weightp s128x96 --profile main --weightp 2 --ref 3 --bframes 0 --frames 10
encode hrd_vui s128x96 --profile high --nal-hrd vbr --vbv-maxrate 400 --vbv-bufsize 800 \
    --pic-struct --colorprim bt709 --transfer bt709 --colormatrix bt709 --range pc \
    --overscan show --videoformat pal --chromaloc 1 --sar 4:3 --bframes 1 --frames 8
encode hi444_lossless10 s64x48_444p10 --profile high444 --input-csp i444 --output-csp i444 \
    --output-depth 10 --qp 0 --frames 4

# Written back by the parameter-set writers: default (jvt) scaling lists, a
# cropped 4:2:2 10-bit picture with CBR NAL HRD, and 4:4:4 with 8x8 lists
# for chroma in its PPS. x264 codes interlace as MBAFF (mbaff) or as frames
# of a field-coded SPS (interlaced_frames); it writes no field pictures.
encode cqm_jvt s128x96 --profile high --8x8dct --cqm jvt --bframes 1 --b-adapt 0 --frames 6
encode hi422_10_crop s100x70_422p10 --profile high422 --input-csp i422 --output-csp i422 \
    --output-depth 10 --nal-hrd cbr --vbv-maxrate 300 --vbv-bufsize 300 --bitrate 300 --frames 6
encode hi444_cqm s64x48_444p --profile high444 --input-csp i444 --output-csp i444 --8x8dct \
    --cqm jvt --frames 4

python3 - "$here/slices4.h264" "$here/long_startcodes.h264" <<'PY'
import re, sys
data = open(sys.argv[1], 'rb').read()
open(sys.argv[2], 'wb').write(re.sub(b'(?<!\x00)\x00\x00\x01', b'\x00\x00\x00\x01', data))
PY

reduce_trace() { # clip
    ffmpeg -hide_banner -nostats -i "$here/$1.h264" -c copy -bsf:v trace_headers -f null - 2>&1 |
    python3 -c '
import re, sys

FIELD = re.compile(r"^\[trace_headers @ \w+\] \d+\s+(\S+)\s+[01]+ = (-?\d+)$")
BLOCK = re.compile(r"^\[trace_headers @ \w+\] ([A-Za-z].*)$")
SKIP = ("rbsp_alignment_zero_bit", "cabac_alignment_one_bit")

def weighted(f):
    return any(v == 1 and re.match(r"(luma|chroma)_weight_l0_flag", k) for k, v in f.items())

# Slice headers kept: the first of each type, the first P slice with an
# explicit weight and the first slice that reorders list 0.
SLICE_KINDS = (
    ("slice_i", lambda f: f["slice_type"] % 5 == 2),
    ("slice_p", lambda f: f["slice_type"] % 5 == 0),
    ("slice_b", lambda f: f["slice_type"] % 5 == 1),
    ("slice_pw", lambda f: f["slice_type"] % 5 == 0 and weighted(f)),
    ("slice_reorder", lambda f: f.get("ref_pic_list_modification_flag_l0") == 1),
)

out = {}          # block name -> ordered {field: value}
fields = None     # fields of the block being read
block = None
prefix = ""
slices = 0
scaling = None    # [list name, entries, lastScale] while delta_scale runs
pending_list = None

def finish_scaling():
    global scaling
    if scaling:
        name, entries, last = scaling
        while len(entries) < (16 if "4x4" in name else 64):
            entries.append(last)        # no deltas once nextScale is 0
        for j, v in enumerate(entries):
            fields["%s[%d]" % (name, j)] = v
    scaling = None

def finish_block():
    if fields is None:
        return
    finish_scaling()
    if block in ("sps", "pps"):
        out.setdefault(block, fields)
    elif block == "slice" and "slice_type" in fields:
        for kind, wanted in SLICE_KINDS:
            if kind not in out and wanted(fields):
                out[kind] = dict(fields, slice_index=slices - 1)

for line in sys.stdin:
    line = line.rstrip("\n")
    m = FIELD.match(line)
    if m and fields is not None:
        name, value = m.group(1), int(m.group(2))
        if not name.startswith("delta_scale") or name == "delta_scale[0]":
            finish_scaling()
        if name.startswith("delta_scale"):
            if scaling is None:
                scaling = [pending_list, [], 8]
            following = (scaling[2] + value + 256) % 256
            entry = scaling[2] if following == 0 else following
            scaling[1].append(entry)
            scaling[2] = entry
            continue
        if name in SKIP:
            continue
        flag = re.match(r"(seq|pic)_scaling_list_present_flag\[(\d+)\]", name)
        if flag:
            i = int(flag.group(2))
            pending_list = "ScalingList4x4[%d]" % i if i < 6 else "ScalingList8x8[%d]" % (i - 6)
        if name == "nal_hrd_parameters_present_flag":
            prefix = "nal_hrd."
        elif name == "vcl_hrd_parameters_present_flag":
            prefix = "vcl_hrd."
        elif name in ("low_delay_hrd_flag", "pic_struct_present_flag"):
            prefix = ""
        fields[name if name.endswith("present_flag") else prefix + name] = value
        continue
    m = BLOCK.match(line)
    if not m:
        continue
    finish_block()
    title = m.group(1)
    prefix = ""
    fields = {}
    block = {"Sequence Parameter Set": "sps", "Picture Parameter Set": "pps",
             "Slice Header": "slice"}.get(title)
    if block is None:
        fields = None
    elif block == "slice":
        slices += 1
finish_block()

for name in ["sps", "pps"] + [kind for kind, _ in SLICE_KINDS]:
    for field, value in out.get(name, {}).items():
        print("%s.%s %d" % (name, field, value))
'
}

extract_avcc() { # clip
    ffmpeg -hide_banner -loglevel error -y -i "$here/$1.h264" -c copy "$work/$1.mp4"
    python3 - "$work/$1.mp4" "$here/$1.avcc" <<'PY'
import struct, sys
data = open(sys.argv[1], 'rb').read()
at = data.find(b'avcC') - 4
size = struct.unpack('>I', data[at:at + 4])[0]
open(sys.argv[2], 'wb').write(data[at:at + size])
PY
}

for clip in baseline_cavlc main_cabac_b high_cqm mbaff interlaced_frames slices4 weightp hrd_vui \
            hi444_lossless10 long_startcodes cqm_jvt hi422_10_crop hi444_cqm; do
    reduce_trace "$clip" > "$here/$clip.fields"
    extract_avcc "$clip"
done
