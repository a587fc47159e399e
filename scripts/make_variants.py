#!/usr/bin/env python3
"""Writes plain.gltf, a small scene, and the variants other tools make of it
(run once; the files are checked in): gltfpack's default (quantized, its UVs
dequantized by a texture transform), gltfpack -cc (EXT_meshopt_compression),
gltfpack -mi (EXT_mesh_gpu_instancing) and gltf-transform's Draco. Needs npm's
gltfpack and @gltf-transform/cli on the PATH."""
import base64, json, math, os, struct, subprocess, zlib

here = os.path.join(os.path.dirname(os.path.abspath(__file__)), os.pardir, "tests", "data", "variants")
buffer = bytearray()
accessors, views = [], []


def add(values, kind, component=5126):
    width = {"SCALAR": 1, "VEC2": 2, "VEC3": 3}[kind]
    flat = [x for v in values for x in (v if width > 1 else [v])]
    while len(buffer) % 4:
        buffer.append(0)
    data = struct.pack("<%d%s" % (len(flat), {5126: "f", 5123: "H"}[component]), *flat)
    views.append({"buffer": 0, "byteOffset": len(buffer), "byteLength": len(data)})
    buffer.extend(data)
    acc = {"bufferView": len(views) - 1, "componentType": component, "count": len(values), "type": kind}
    if kind == "VEC3":
        acc["min"] = [min(v[i] for v in values) for i in range(3)]
        acc["max"] = [max(v[i] for v in values) for i in range(3)]
    accessors.append(acc)
    return len(accessors) - 1


def box(sx, sy, sz):
    pos, nrm, uv, idx = [], [], [], []
    for axis in range(3):
        for sign in (-1, 1):
            n = [0, 0, 0]
            n[axis] = sign
            u, v = [a for a in range(3) if a != axis]
            base = len(pos)
            for cu, cv in ((-1, -1), (1, -1), (1, 1), (-1, 1)):
                size = (sx, sy, sz)
                p = [0, 0, 0]
                p[axis], p[u], p[v] = sign * size[axis] / 2, cu * size[u] / 2, cv * size[v] / 2
                pos.append(p)
                nrm.append(n)
                uv.append(((cu + 1) / 4 + 0.1 * axis, (cv + 1) / 4 + 0.3 * (sign > 0)))
            # Counter-clockwise seen from outside: (u, v) turns about the normal
            # the way x, y does about z, except on the y faces (x, z turns about -y).
            outward = (sign > 0) != (axis == 1)
            idx += [base, base + 1, base + 2, base, base + 2, base + 3] if outward else \
                [base, base + 2, base + 1, base, base + 3, base + 2]
    return {"attributes": {"POSITION": add(pos, "VEC3"), "NORMAL": add(nrm, "VEC3"), "TEXCOORD_0": add(uv, "VEC2")},
            "indices": add(idx, "SCALAR", 5123), "material": 0}


def quat(axis, degrees):
    s = math.sin(math.radians(degrees) / 2)
    return [axis[0] * s, axis[1] * s, axis[2] * s, math.cos(math.radians(degrees) / 2)]


# A 4x4 checker as the texture.
rows = b"".join(b"\0" + bytes(c for x in range(4) for c in ((200 if (x + y) % 2 else 40), 60, 90)) for y in range(4))
def chunk(kind, data):
    return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data) & 0xFFFFFFFF)
with open(os.path.join(here, "checker.png"), "wb") as f:
    f.write(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", 4, 4, 8, 2, 0, 0, 0))
            + chunk(b"IDAT", zlib.compress(rows, 9)) + chunk(b"IEND", b""))

meshes = [{"name": "hull", "primitives": [box(2.0, 0.6, 4.0)]}, {"name": "crate", "primitives": [box(0.4, 0.4, 0.4)]}]
doc = {
    "asset": {"version": "2.0"},
    "scene": 0,
    "scenes": [{"nodes": [0]}],
    "nodes": [
        {"name": "hull", "mesh": 0, "translation": [0, 0.5, 0], "children": [1, 2, 3, 4]},
        {"name": "lid", "mesh": 1, "translation": [0.6, 0.5, 1.0], "rotation": quat((0, 1, 0), 30), "scale": [1, 0.5, 2]},
        {"name": "crate_a", "mesh": 1, "translation": [-0.6, 0.5, -1.0]},
        {"name": "crate_b", "mesh": 1, "translation": [-0.6, 0.5, 0.0]},
        {"name": "crate_c", "mesh": 1, "translation": [-0.6, 0.5, 1.0]},
    ],
    "meshes": meshes,
    "materials": [{"name": "paint", "pbrMetallicRoughness": {"baseColorTexture": {"index": 0}}}],
    "textures": [{"source": 0}],
    "images": [{"uri": "checker.png"}],
    "accessors": accessors,
    "bufferViews": views,
    "buffers": [{"byteLength": len(buffer),
                 "uri": "data:application/octet-stream;base64," + base64.b64encode(bytes(buffer)).decode()}],
}
with open(os.path.join(here, "plain.gltf"), "w") as f:
    json.dump(doc, f)
os.chdir(here)
for out, flags in (("quantized.glb", []), ("meshopt.glb", ["-cc"]), ("instanced.glb", ["-mi"])):
    subprocess.run(["gltfpack", "-i", "plain.gltf", "-o", out, "-tr"] + flags, check=True)
subprocess.run(["gltf-transform", "draco", "plain.gltf", "draco.glb"], check=True)
