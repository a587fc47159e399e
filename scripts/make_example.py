#!/usr/bin/env python3
"""Writes examples/trainer.gltf: a small aircraft-like model for trying Tarnvale.

Two levels of detail, several materials (one translucent, one carrying an FS10
text in its extras), part data (extras.FS10att: a visibility condition on the
fuselage, a clickable cockpit switch, a navigation light's effect), animated
control surfaces and gear, and a skinned antenna whose three joints flex it; the
names match data/modeldef.xml. Run again to regenerate.
"""
import base64
import json
import math
import os
import struct
import zlib

buffer = bytearray()
views, accessors, meshes = [], [], []


def add_view(data, target):
    while len(buffer) % 4:
        buffer.append(0)
    views.append({"buffer": 0, "byteOffset": len(buffer), "byteLength": len(data), "target": target})
    buffer.extend(data)
    return len(views) - 1


def add_accessor(values, kind, component=5126, target=34962):
    width = {"SCALAR": 1, "VEC2": 2, "VEC3": 3, "VEC4": 4, "MAT4": 16}[kind]
    fmt = {5126: "f", 5123: "H", 5121: "B"}[component]
    flat = [v for item in values for v in (item if width > 1 else [item])]
    view = add_view(struct.pack("<%d%s" % (len(flat), fmt), *flat), target)
    acc = {"bufferView": view, "componentType": component, "count": len(values), "type": kind}
    if kind == "VEC3" and target == 34962:
        acc["min"] = [min(v[i] for v in values) for i in range(3)]
        acc["max"] = [max(v[i] for v in values) for i in range(3)]
    if target is None:
        del views[view]["target"]
    accessors.append(acc)
    return len(accessors) - 1


def box(sx, sy, sz, material, uv_scale=1.0):
    """A box centred on the origin: 24 vertices, a normal and uvs per face."""
    faces = [((1, 0, 0), (0, 0, -1), (0, 1, 0)), ((-1, 0, 0), (0, 0, 1), (0, 1, 0)),
             ((0, 1, 0), (1, 0, 0), (0, 0, -1)), ((0, -1, 0), (1, 0, 0), (0, 0, 1)),
             ((0, 0, 1), (1, 0, 0), (0, 1, 0)), ((0, 0, -1), (-1, 0, 0), (0, 1, 0))]
    pos, nrm, uv, idx = [], [], [], []
    h = (sx / 2, sy / 2, sz / 2)
    for n, u, v in faces:
        base = len(pos)
        for cu, cv in ((-1, -1), (1, -1), (1, 1), (-1, 1)):
            pos.append(tuple(h[i] * (n[i] + cu * u[i] + cv * v[i]) for i in range(3)))
            nrm.append(n)
            uv.append(((cu + 1) / 2 * uv_scale, (1 - cv) / 2 * uv_scale))
        idx += [base, base + 1, base + 2, base, base + 2, base + 3]
    prim = {"attributes": {"POSITION": add_accessor(pos, "VEC3"), "NORMAL": add_accessor(nrm, "VEC3"),
                           "TEXCOORD_0": add_accessor(uv, "VEC2")},
            "indices": add_accessor(idx, "SCALAR", 5123, 34963), "material": material}
    return prim


def mesh(name, *prims):
    meshes.append({"name": name, "primitives": list(prims)})
    return len(meshes) - 1


materials = [
    {"name": "Paint White", "pbrMetallicRoughness": {"baseColorFactor": [0.92, 0.92, 0.9, 1.0],
     "baseColorTexture": {"index": 0}, "metallicFactor": 0.0, "roughnessFactor": 0.45},
     "normalTexture": {"index": 1}},
    {"name": "Canopy Glass", "alphaMode": "BLEND", "pbrMetallicRoughness": {
        "baseColorFactor": [0.55, 0.65, 0.75, 0.35], "metallicFactor": 0.0, "roughnessFactor": 0.1}},
    {"name": "Trim Red", "pbrMetallicRoughness": {"baseColorFactor": [0.7, 0.08, 0.06, 1.0],
     "metallicFactor": 0.0, "roughnessFactor": 0.6},
     "extras": {"FS10": "EnvLevelScale=0.5;UseGlobalEnv=1;SpecBloomFloor=0.8;DoubleSided=1;"
                                 "SrcBlend=One;DstBlend=Zero;EmissiveData=Blend;AlphaTestFunction=Never"}},
    {"name": "Tyre", "pbrMetallicRoughness": {"baseColorFactor": [0.06, 0.06, 0.06, 1.0],
     "metallicFactor": 0.0, "roughnessFactor": 1.0}},
]

fuselage = mesh("fuselage", box(1.1, 1.2, 6.0, 0, 2.0), box(0.9, 0.5, 1.4, 1))
wing = mesh("wing", box(9.0, 0.15, 1.5, 0))
aileron = mesh("aileron", box(2.0, 0.08, 0.35, 2))
stab = mesh("stabiliser", box(3.2, 0.1, 0.8, 0))
elevator = mesh("elevator", box(3.2, 0.06, 0.3, 2))
fin = mesh("fin", box(0.1, 1.3, 0.9, 0))
rudder = mesh("rudder", box(0.08, 1.2, 0.35, 2))
prop = mesh("propeller", box(1.9, 0.12, 0.05, 3))
gear = mesh("gear leg", box(0.1, 0.8, 0.1, 3), box(0.18, 0.5, 0.5, 3))
switch = mesh("panel light switch", box(0.04, 0.03, 0.06, 3))
low = mesh("low detail", box(1.1, 1.2, 6.0, 0), box(9.0, 0.15, 1.5, 0), box(3.2, 0.1, 0.8, 0))


def antenna(segments=4, height=0.9, width=0.04):
    """A thin mast in segments, skinned to three joints that flex it."""
    pos, nrm, joints, weights, idx = [], [], [], [], []
    for k in range(segments + 1):
        y = height * k / segments
        # Each ring follows the joint below it and, higher up, the one above.
        t = k / segments * 2
        lower = min(int(t), 1)
        share = min(t - lower, 1.0)
        for x, z, n in ((-width, -width, (-1, 0, -1)), (width, -width, (1, 0, -1)),
                        (width, width, (1, 0, 1)), (-width, width, (-1, 0, 1))):
            pos.append((x, y, z))
            length = math.sqrt(2)
            nrm.append((n[0] / length, 0, n[2] / length))
            joints.append((lower, lower + 1, 0, 0))
            weights.append((1 - share, share, 0, 0))
    for k in range(segments):
        for side in range(4):
            a, b = k * 4 + side, k * 4 + (side + 1) % 4
            idx += [a, b + 4, b, a, a + 4, b + 4]
    return {"attributes": {"POSITION": add_accessor(pos, "VEC3"), "NORMAL": add_accessor(nrm, "VEC3"),
                           "JOINTS_0": add_accessor(joints, "VEC4", 5121), "WEIGHTS_0": add_accessor(weights, "VEC4")},
            "indices": add_accessor(idx, "SCALAR", 5123, 34963), "material": 2}


mast = mesh("antenna mast", antenna())


def quat(axis, degrees):
    s = math.sin(math.radians(degrees) / 2)
    return [axis[0] * s, axis[1] * s, axis[2] * s, math.cos(math.radians(degrees) / 2)]


nodes = [
    {"name": "trainer", "children": [1, 12]},                                      # 0
    {"name": "trainer_LOD_0", "children": [2, 3, 6, 9, 10, 11]},                   # 1
    {"name": "Fuselage", "mesh": fuselage, "children": [19],
     "extras": {"FS10att": "<FSMakeMdlData version=\"9.0\"><Visibility name=\"custom_fuselage\"/></FSMakeMdlData>"}},
    {"name": "Wing", "mesh": wing, "translation": [0, 0.3, 0.6], "children": [4, 5, 18]},  # 3
    {"name": "l_aileron", "mesh": aileron, "translation": [3.2, 0, -0.9]},           # 4
    {"name": "r_aileron", "mesh": aileron, "translation": [-3.2, 0, -0.9]},          # 5
    {"name": "Tail", "mesh": stab, "translation": [0, 0.35, -2.8], "children": [7, 8]},  # 6
    {"name": "elevator", "mesh": elevator, "translation": [0, 0, -0.55]},            # 7
    {"name": "Fin", "mesh": fin, "translation": [0, 0.7, 0], "children": [13]},       # 8
    {"name": "prop_still", "mesh": prop, "translation": [0, 0, 3.05]},               # 9
    {"name": "c_gear", "mesh": gear, "translation": [0, -0.9, 1.8]},                 # 10
    {"name": "Antenna", "extras": {"visible": False}, "translation": [0, 0.7, -1.0],
     "children": [14, 17]},                                                        # 11
    {"name": "trainer_LOD_1", "mesh": low},                                       # 12
    {"name": "rudder", "mesh": rudder, "translation": [0, 0, -0.55]},                # 13
    {"name": "antenna_1", "children": [15]},                                       # 14: joints
    {"name": "antenna_2", "translation": [0, 0.45, 0], "children": [16]},          # 15
    {"name": "antenna_3", "translation": [0, 0.45, 0]},                            # 16
    {"name": "antenna_mast", "mesh": mast, "skin": 0},                             # 17
    # The left wing tip's red light: an effect at the node's pivot, no geometry.
    {"name": "navlight_red", "translation": [4.5, 0, 0], "extras": {"FS10att": (
        "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n<FSMakeMdlData version=\"9.0\">\n"
        "  <Attachpoint name=\"attachpt_navred\">\n    <AttachedObject>\n"
        "      <Effect effectName=\"fx_navred\" effectParams=\"DAY=1, NIGHT=1\"/>\n"
        "    </AttachedObject>\n  </Attachpoint>\n</FSMakeMdlData>")}},                   # 18
    # A cockpit switch the pilot clicks.
    {"name": "switch_panel_light", "mesh": switch, "translation": [0.25, 0.62, 1.2], "extras": {"FS10att": (
        "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n<FSMakeMdlData version=\"9.0\">\n"
        "  <MouseRect name=\"switch_panel_light\"> </MouseRect>\n</FSMakeMdlData>")}},  # 19
]
# The joints stand at heights 0, 0.45 and 0.9 of the mast: their inverse bind
# matrices move them back to its foot.
skins = [{"joints": [14, 15, 16], "skeleton": 14, "inverseBindMatrices": add_accessor(
    [[1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, -h, 0, 1] for h in (0.0, 0.45, 0.9)], "MAT4", target=None)}]

times = add_accessor([0.0, 1.0, 2.0, 3.0], "SCALAR", target=None)


def rotation_channel(node, axis, angles):
    values = add_accessor([quat(axis, a) for a in angles], "VEC4", target=None)
    return node, values, "rotation"


channels = [
    rotation_channel(4, (1, 0, 0), [0, -20, 0, 15]),
    rotation_channel(5, (1, 0, 0), [0, 20, 0, -15]),
    rotation_channel(7, (1, 0, 0), [0, 25, 0, -20]),
    rotation_channel(13, (0, 1, 0), [0, 25, 0, -25]),
    (10, add_accessor([(0, -0.9, 1.8), (0, -0.7, 1.6), (0, -0.4, 1.4), (0, -0.2, 1.3)], "VEC3", target=None),
     "translation"),
    rotation_channel(10, (1, 0, 0), [0, 30, 60, 90]),
    rotation_channel(15, (1, 0, 0), [0, 12, 0, -12]),
    rotation_channel(16, (1, 0, 0), [0, 18, 0, -18]),
]
animation = {"name": "controls", "samplers": [], "channels": []}
for node, values, path in channels:
    animation["samplers"].append({"input": times, "output": values, "interpolation": "LINEAR"})
    animation["channels"].append({"sampler": len(animation["samplers"]) - 1, "target": {"node": node, "path": path}})

doc = {
    "asset": {"version": "2.0", "generator": "Tarnvale scripts/make_example.py"},
    "scene": 0,
    "scenes": [{"name": "Tarnvale Trainer", "nodes": [0]}],
    "nodes": nodes,
    "meshes": meshes,
    "skins": skins,
    "materials": materials,
    "textures": [{"source": 0}, {"source": 1}],
    "images": [{"uri": "textures/trainer_t.png"}, {"uri": "textures/trainer_n.png"}],
    "animations": [animation],
    "accessors": accessors,
    "bufferViews": views,
    "buffers": [{"byteLength": len(buffer),
                 "uri": "data:application/octet-stream;base64," + base64.b64encode(bytes(buffer)).decode()}],
}

def write_png(path, width, height, pixel):
    """An 8-bit RGB PNG of pixel(x, y) -> (r, g, b)."""
    rows = b"".join(b"\0" + bytes(c for x in range(width) for c in pixel(x, y)) for y in range(height))
    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data) & 0xFFFFFFFF)
    with open(path, "wb") as f:
        f.write(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0))
                + chunk(b"IDAT", zlib.compress(rows, 9)) + chunk(b"IEND", b""))


examples = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "examples")
os.makedirs(os.path.join(examples, "textures"), exist_ok=True)
# The livery: white with a red cheat line and a blue fin band, 600x300 so that
# --textures shows the resize to powers of two (512x256).
write_png(os.path.join(examples, "textures", "trainer_t.png"), 600, 300,
          lambda x, y: (200, 30, 25) if 130 <= y < 160 else (30, 60, 160) if x >= 480 and y < 60 else (235, 235, 228))
# Panel lines as a normal map (+Y up): a groove every 64 pixels across x.
def panel_normal(x, y):
    slope = 0.6 if x % 64 == 0 else -0.6 if x % 64 == 1 else 0.0
    z = math.sqrt(1 - slope * slope)
    return (round((slope + 1) * 127.5), 128, round((z + 1) * 127.5))
write_png(os.path.join(examples, "textures", "trainer_n.png"), 256, 256, panel_normal)

out = os.path.join(examples, "trainer.gltf")
with open(out, "w") as f:
    json.dump(doc, f, indent=1)
    f.write("\n")
print("wrote", os.path.normpath(out))

# The same trainer with faults that `tarnvale check` finds (the README shows its
# report): an aileron named the modeller's way, part data without its root, and
# a partial simulator text.
broken = json.loads(json.dumps(doc))
for node in broken["nodes"]:
    if node.get("name") == "l_aileron":
        node["name"] = "aileron.L"
    if node.get("name") == "Fuselage":
        node["extras"]["FS10att"] = '<Visibility name="custom_fuselage"/>'
for material in broken["materials"]:
    if material["name"] == "Trim Red":
        material["extras"]["FS10"] = "EnvLevelScale=0.5;UseGlobalEnv=1;SpecBloomFloor=0.8;DoubleSided=1"
out = os.path.join(examples, "broken_trainer.gltf")
with open(out, "w") as f:
    json.dump(broken, f, indent=1)
    f.write("\n")
print("wrote", os.path.normpath(out))
