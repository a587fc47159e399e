#!/usr/bin/env python3
"""Hostile but valid scenes: each is generated, exported with `tarnvale export`,
and reported with its exit code, wall time, peak memory and the command's last
line of reason. Usage: bench/hostile.py TARNVALE [FOLDER]"""
import base64, json, math, os, struct, subprocess, sys, tempfile, time

tarnvale = sys.argv[1]
folder = sys.argv[2] if len(sys.argv) > 2 else tempfile.mkdtemp(prefix="tarnvale-hostile-")
os.makedirs(folder, exist_ok=True)

def gltf(nodes, buffers=b"", accessors=(), views=(), meshes=(), animations=(), roots=None):
    doc = {"asset": {"version": "2.0"}, "scene": 0,
           "scenes": [{"nodes": roots if roots is not None else list(range(len(nodes)))}], "nodes": nodes}
    if meshes: doc["meshes"] = list(meshes)
    if accessors: doc["accessors"] = list(accessors)
    if views: doc["bufferViews"] = list(views)
    if animations: doc["animations"] = list(animations)
    if buffers:
        doc["buffers"] = [{"byteLength": len(buffers),
                           "uri": "data:application/octet-stream;base64," + base64.b64encode(buffers).decode()}]
    return doc

def triangle(points=(0, 0, 0, 1, 0, 0, 0, 1, 0)):
    data = struct.pack("<9f", *points)
    acc = [{"bufferView": 0, "componentType": 5126, "count": 3, "type": "VEC3",
            "min": [min(filter(math.isfinite, points[i::3])) for i in range(3)],
            "max": [max(filter(math.isfinite, points[i::3])) for i in range(3)]}]
    return data, acc, [{"buffer": 0, "byteLength": len(data)}], [{"primitives": [{"attributes": {"POSITION": 0}}]}]

def keys(n, values):
    data, acc, views, meshes = triangle()
    times = struct.pack("<%df" % n, *[i / 30 for i in range(n)])
    out = struct.pack("<%df" % (3 * n), *values)
    views += [{"buffer": 0, "byteOffset": len(data), "byteLength": len(times)},
              {"buffer": 0, "byteOffset": len(data) + len(times), "byteLength": len(out)}]
    acc += [{"bufferView": 1, "componentType": 5126, "count": n, "type": "SCALAR", "min": [0], "max": [(n - 1) / 30]},
            {"bufferView": 2, "componentType": 5126, "count": n, "type": "VEC3"}]
    anim = {"channels": [{"sampler": 0, "target": {"node": 0, "path": "translation"}}],
            "samplers": [{"input": 1, "output": 2}]}
    return gltf([{"name": "l_aileron", "mesh": 0}], data + times + out, acc, views, meshes, [anim])

def scenes():
    data, acc, views, meshes = triangle()
    chain = [{"name": "n%d" % i, "children": [i + 1]} for i in range(100000)] + [{"name": "end", "mesh": 0}]
    yield "a chain of 100,000 levels", gltf(chain, data, acc, views, meshes, roots=[0])
    yield "a million sibling nodes", gltf([{"name": "n%d" % i} for i in range(1000000)])
    yield "one mesh on 100,000 nodes", gltf([{"name": "n%d" % i, "mesh": 0, "translation": [i, 0, 0]}
                                             for i in range(100000)], data, acc, views, meshes)
    far = [dict(acc[0], count=1 << 30)]
    yield "an accessor far beyond its buffer", gltf([{"mesh": 0}], data, far, views, meshes)
    yield "a name of 8 MB", gltf([{"name": "n" * (8 << 20), "mesh": 0}], data, acc, views, meshes)
    nan = triangle((0, 0, 0, math.nan, 0, 0, 0, math.inf, 0))
    yield "NaN and infinity in positions", gltf([{"mesh": 0}], nan[0], nan[1], nan[2], nan[3])
    yield "infinity in a matrix", gltf([{"mesh": 0, "matrix": [1e39] * 16}], data, acc, views, meshes)
    yield "NaN in keys", keys(4, [0, 0, 0, math.nan, 0, 0, 0, math.inf, 0, 1, 1, 1])
    yield "a million keys on one channel", keys(1000000, [v for i in range(1000000) for v in (i % 7, 0, 0)])

def glb_lying():
    body = json.dumps(gltf([{"name": "m"}])).encode()
    body += b" " * (-len(body) % 4)
    return b"glTF" + struct.pack("<II", 2, 12 + 8 + len(body)) + struct.pack("<I", len(body) * 9) + b"JSON" + body

print("| input | exit | time | peak memory | file | what the command says |")
print("|---|---|---|---|---|---|")
def measure(what, path):
    out = os.path.join(folder, "out.x")
    start = time.time()
    r = subprocess.run(["/usr/bin/time", "-f", "%M", tarnvale, "export", path, "-o", out, "--yes", "--no-tool",
                        "--quiet"], capture_output=True, text=True, errors="replace")
    seconds = time.time() - start
    lines = [l for l in r.stderr.splitlines() if l.strip() and not l.startswith("Command exited")]
    peak = int(lines[-1]) / 1024
    said = (lines[-2] if len(lines) > 1 else "")[:160].replace("|", "\\|").replace(folder, "F")
    size = os.path.getsize(path) / 1e6
    print("| %s | %d | %.2f s | %.0f MB | %.1f MB | %s |" % (what, r.returncode, seconds, peak, size, said), flush=True)
    for e in ("x", "xanim", "config"):
        p = os.path.join(folder, "out." + e)
        if os.path.exists(p): os.remove(p)

for what, doc in scenes():
    path = os.path.join(folder, "hostile.gltf")
    with open(path, "w") as f: json.dump(doc, f, allow_nan=True)
    measure(what, path)
path = os.path.join(folder, "lying.glb")
with open(path, "wb") as f: f.write(glb_lying())
measure("a .glb whose chunk lengths lie", path)
