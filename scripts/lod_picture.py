#!/usr/bin/env python3
"""Draws the levels of detail of an X file side by side, as wireframes seen from
above and behind, one panel a root frame: python3 scripts/lod_picture.py FILE.x OUT.png
With --pod OUT.gltf, writes the README's pod instead: a stretched sphere of 64 x 32
segments, its top and bottom halves of two materials."""
import base64
import json
import math
import re
import struct
import sys

from PIL import Image, ImageDraw


def blocks(text):
    """The file's blocks as (type, name, data tokens, blocks inside), comments gone."""
    tokens = [t for t in re.findall(r'//[^\n]*|"[^"]*"|[{}]|[^\s;,{}"]+', text) if not t.startswith("//")]

    def block(at):
        data, inside = [], []
        while at < len(tokens) and tokens[at] != "}":
            named = at + 2 < len(tokens) and tokens[at + 2] == "{" and tokens[at][0].isalpha()
            if named or (at + 1 < len(tokens) and tokens[at + 1] == "{"):
                kind, name = tokens[at], tokens[at + 1] if named else ""
                (d, i), at = block(at + (3 if named else 2))
                inside.append((kind, name, d, i))
                at += 1
            else:
                data.append(tokens[at])
                at += 1
        return (data, inside), at
    return block(0)[0][1]


def triangles(frame_blocks, parent):
    """World-space triangles of a frame and those below it."""
    matrix = next((list(map(float, d)) for k, _, d, _ in frame_blocks if k == "FrameTransformMatrix"), None)
    world = [sum(matrix[i // 4 * 4 + k] * parent[k * 4 + i % 4] for k in range(4)) for i in range(16)]
    out = []
    for kind, _, data, inside in frame_blocks:
        if kind == "Frame":
            out += triangles(inside, world)
        if kind != "Mesh":
            continue
        values = [float(v) for v in data]
        n = int(values[0])
        points = [[sum(values[1 + 3 * v + k] * world[k * 4 + c] for k in range(3)) + world[12 + c] for c in range(3)]
                  for v in range(n)]
        at = 2 + 3 * n
        for _ in range(int(values[1 + 3 * n])):
            count = int(values[at])
            out.append([points[int(i)] for i in values[at + 1:at + 1 + count]])
            at += 1 + count
    return out


def main(source, target):
    with open(source, encoding="cp1252") as f:
        frames = [(name, inside) for kind, name, _, inside in blocks(f.read()) if kind == "Frame"]
    identity = [1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1]
    levels = [(name, triangles(inside, identity)) for name, inside in frames]
    # Seen from above and behind: turn 30 degrees about x, then drop z.
    a = math.radians(35)
    view = [[(p[0], p[1] * math.cos(a) - p[2] * math.sin(a)) for p in t] for _, ts in levels for t in ts]
    xs = [p[0] for t in view for p in t]
    ys = [p[1] for t in view for p in t]
    size, pad = 420, 30
    scale = (size - 2 * pad) / max(max(xs) - min(xs), max(ys) - min(ys))
    image = Image.new("RGB", (size * len(levels), size + 30), "white")
    draw = ImageDraw.Draw(image)
    for i, (name, ts) in enumerate(levels):
        for t in ts:
            flat = [(i * size + pad + (p[0] - min(xs)) * scale,
                     size - pad - (p[1] * math.cos(a) - p[2] * math.sin(a) - min(ys)) * scale) for p in t]
            draw.polygon(flat, outline=(40, 70, 140))
        draw.text((i * size + pad, size), "%s: %d triangles" % (name.replace("frm-", ""), len(ts)), fill="black")
    image.save(target)


def pod(target, segments=64, rings=32):
    points, normals, pairs, halves = [], [], [], ([], [])
    for r in range(rings + 1):
        for s in range(segments + 1):
            t, p = math.pi * r / rings, 2 * math.pi * s / segments
            x, y, z = math.sin(t) * math.cos(p), math.cos(t), math.sin(t) * math.sin(p)
            points += [x, 0.6 * y, 2 * z]
            normals += [x, y, z]
            pairs += [s / segments, r / rings]
    for r in range(rings):
        for s in range(segments):
            a = r * (segments + 1) + s
            b = a + segments + 1
            halves[r >= rings // 2].extend([a, b, a + 1, a + 1, b, b + 1])
    chunks = [struct.pack("<%df" % len(v), *v) for v in (points, normals, pairs)]
    chunks += [struct.pack("<%dI" % len(h), *h) for h in halves]
    views, at = [], 0
    for c in chunks:
        views.append({"buffer": 0, "byteOffset": at, "byteLength": len(c)})
        at += len(c)
    n = len(points) // 3
    accessors = [{"bufferView": 0, "componentType": 5126, "count": n, "type": "VEC3",
                  "min": [-1, -0.6, -2], "max": [1, 0.6, 2]},
                 {"bufferView": 1, "componentType": 5126, "count": n, "type": "VEC3"},
                 {"bufferView": 2, "componentType": 5126, "count": n, "type": "VEC2"}]
    accessors += [{"bufferView": 3 + i, "componentType": 5125, "count": len(h), "type": "SCALAR"}
                  for i, h in enumerate(halves)]
    attributes = {"POSITION": 0, "NORMAL": 1, "TEXCOORD_0": 2}
    data = b"".join(chunks)
    document = {
        "asset": {"version": "2.0"}, "scenes": [{"name": "pod", "nodes": [0]}],
        "nodes": [{"name": "pod", "mesh": 0}],
        "materials": [{"name": "Paint"}, {"name": "Belly"}],
        "meshes": [{"primitives": [{"attributes": attributes, "indices": 3 + i, "material": i} for i in (0, 1)]}],
        "buffers": [{"byteLength": len(data),
                     "uri": "data:application/octet-stream;base64," + base64.b64encode(data).decode()}],
        "bufferViews": views, "accessors": accessors}
    with open(target, "w") as f:
        json.dump(document, f)


if __name__ == "__main__":
    if sys.argv[1] == "--pod":
        pod(sys.argv[2])
    else:
        main(sys.argv[1], sys.argv[2])
