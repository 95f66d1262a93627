#!/usr/bin/env python3
"""Seed corpora for the fuzz targets, made from the test media.

    make_corpus.py OUTDIR

writes OUTDIR/<target>/<seed> for every target. The seeds are derived at run
time so that the repository keeps only the media the unit tests use anyway;
the XML seeds are small documents in each format, written out here.
"""
import hashlib
import os
import struct
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
H264 = os.path.join(ROOT, "tests", "data", "h264")
AAC = os.path.join(ROOT, "tests", "data", "aac")


def annexb_units(stream):
    """Units of a start-code stream, NAL header byte first."""
    starts = []
    i = 0
    while True:
        i = stream.find(b"\x00\x00\x01", i)
        if i < 0:
            break
        starts.append(i + 3)
        i += 3
    units = []
    for n, s in enumerate(starts):
        end = starts[n + 1] - 3 if n + 1 < len(starts) else len(stream)
        unit = stream[s:end]
        while n + 1 < len(starts) and unit.endswith(b"\x00"):
            unit = unit[:-1]  # the leading zero of a 4-byte code
        units.append(unit)
    return units


def length_prefixed(units):
    return b"".join(struct.pack(">I", len(u)) + u for u in units)


def start_coded(units):
    return b"".join(b"\x00\x00\x00\x01" + u for u in units)


def piece(data):
    """One length byte and the bytes, as the targets' inputs take them."""
    data = data[:255]
    return bytes([len(data)]) + data


def h264_streams():
    for name in sorted(os.listdir(H264)):
        if name.endswith(".h264"):
            base = name[:-5]
            with open(os.path.join(H264, name), "rb") as f:
                stream = f.read()
            avcc = b""
            if os.path.exists(os.path.join(H264, base + ".avcc")):
                with open(os.path.join(H264, base + ".avcc"), "rb") as f:
                    avcc = f.read()
            yield base, stream, avcc


def aac_seeds():
    asc, adts = [], []
    with open(os.path.join(AAC, "asc.txt")) as f:
        for line in f:
            fields = line.split()
            if fields:
                asc.append(bytes.fromhex(fields[-1]))
    for name in sorted(os.listdir(AAC)):
        if name.endswith(".aac"):
            with open(os.path.join(AAC, name), "rb") as f:
                adts.append(f.read(16))
    return asc, adts


MEDIACMD_XML = [
    b'<?xml version="1.0" encoding="iso-8859-1" ?><MediaCmd>'
    b"<!-- Korvane MEDIACMD xml structure version 1,0 -->"
    b'<CmdID Value="-98237952" /><StructSize Value="1116" /><Channel Value="-1" />'
    b'<Cmd Value="0">Stop</Cmd><Position Value="-1" TcType="frames">-1</Position></MediaCmd>',
    b'<MediaCmd><prev Value="5" /><Cmd Deferred="1" Loop="1" UseClipID="1">Play</Cmd>'
    b'<Speed Value="65520" IsShuttle="1">100</Speed><VideoChannels Value="3" />'
    b'<CmdAlt Value="162" TimeMs="1" /><Position TcType="4">01:00:00;02</Position>'
    b'<Start TcType="25" IsOffset="1">00:00:10:00</Start><End Value="900" />'
    b"<ClipID>clip0001</ClipID><FileName>abc$123</FileName></MediaCmd>",
    b'<?xml version="1.0" ?><MediaCmd><Cmd>GetValue</Cmd><CmdAlt Value="25" />'
    b'<arbID Type="hex" length="4">0A1B2C3D</arbID><StructSize Value="80" /></MediaCmd>',
    b'<?xml version="1.0" encoding="UTF-8"?><MediaCmd><Cmd cfOverideDeferred="1">abort</Cmd>'
    b"<MetaTag>REPLAY_COUNT</MetaTag><MetaData>7</MetaData></MediaCmd>",
]

PROJECT_XML = [
    b'<?xml version="1.0" ?>\n<ClipList />\n<EdlList />\n<Settings />\n',
    b'<?xml version="1.0" ?>\n<ClipList FileName="clips.txt" Data="a\nb" />\n'
    b'<EdlList EdlName="/no/such/dir/cut.edl" Data="x" />\n<Settings Rate="25" Scan="i" />\n',
    b'<?xml version="1.0" encoding="UTF-8" ?>\n<Settings Rate="30000" />\n<!-- note -->\n',
]

CONFIG_XML = [
    b'<?xml version="1.0"?>\n<Config/>\n',
    b'<?xml version="1.0"?>\n<!-- kept -->\n<Config>\n  <Key Name="Ovalbrook">\n'
    b'    <Key Name="MetaData">\n      <Key Name="Default">\n'
    b'        <Value Name="Title" Type="string" Data="a &amp; b&#x0A;"/>\n'
    b'        <Value Name="TimeCode" Type="dword" Data="4"/>\n'
    b"      </Key>\n    </Key>\n  </Key>\n</Config>\n",
]

# Timecode type, a frame count, then the text.
TIMECODE = [
    (4, 107892, b"01:00:00;00"),
    (2, 0, b"00:00:00:00"),
    (8, 90000, b" 01:00:00:00 "),
    (32, 1, b"10:00:00;04"),
    (132, 86400, b"59:59.23"),
    (0, 12345, b"12345"),
]


def seeds():
    out = {name: [] for name in (
        "fuzz_sps", "fuzz_pps", "fuzz_slice_header", "fuzz_nal_units", "fuzz_avcc_read",
        "fuzz_avcc_build", "fuzz_framing", "fuzz_aac_asc", "fuzz_adts", "fuzz_mediacmd_xml",
        "fuzz_project", "fuzz_config_xml", "fuzz_timecode", "fuzz_sps_roundtrip",
        "fuzz_pps_roundtrip", "fuzz_add_nal_units")}
    for base, stream, avcc in h264_streams():
        units = annexb_units(stream)
        sps = [u for u in units if u and u[0] & 31 == 7]
        pps = [u for u in units if u and u[0] & 31 == 8]
        slices = [u for u in units if u and 1 <= u[0] & 31 <= 5]
        out["fuzz_sps"] += sps[:1]
        out["fuzz_pps"] += pps[:1]
        out["fuzz_sps_roundtrip"] += sps[:1]
        out["fuzz_pps_roundtrip"] += pps[:1]
        for s in slices[:2]:
            choice = (s[0] & 31) | ((s[0] >> 5) & 3) << 5
            out["fuzz_slice_header"].append(
                piece(sps[0] if sps else b"") + piece(pps[0] if pps else b"") + bytes([choice]) + s[:300])
        head = units[:6]
        out["fuzz_nal_units"].append(b"\x00" + start_coded(head)[:2048])
        out["fuzz_nal_units"].append(b"\x01" + piece(avcc) + length_prefixed(head)[:2048])
        if avcc:
            out["fuzz_avcc_read"].append(avcc)
        out["fuzz_avcc_build"].append(start_coded(head)[:1024])
        out["fuzz_avcc_build"].append(length_prefixed(sps[:1] + pps[:1] + slices[:1])[:1024])
        out["fuzz_framing"].append(stream[:1024])
        out["fuzz_framing"].append(length_prefixed(head)[:1024])
        out["fuzz_add_nal_units"].append(piece(sps[0] if sps else b"") + piece(pps[0] if pps else b"")
                                         + start_coded(slices[:1])[:512])
    asc, adts = aac_seeds()
    out["fuzz_aac_asc"] += [b"\x00" + a for a in asc] + [b"\x03" + a for a in asc]
    out["fuzz_adts"] += [b"\x00" + a for a in adts]
    out["fuzz_mediacmd_xml"] += MEDIACMD_XML
    out["fuzz_project"] += PROJECT_XML
    out["fuzz_config_xml"] += CONFIG_XML
    out["fuzz_timecode"] += [bytes([t]) + struct.pack("<I", f) + text for t, f, text in TIMECODE]
    return out


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    for target, items in seeds().items():
        folder = os.path.join(sys.argv[1], target)
        os.makedirs(folder, exist_ok=True)
        for data in items:
            name = hashlib.sha1(data).hexdigest()
            with open(os.path.join(folder, name), "wb") as f:
                f.write(data)


if __name__ == "__main__":
    main()
