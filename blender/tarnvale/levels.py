# Levels of detail as modellers make them in Blender: a collection (or an empty)
# whose name holds LOD_ and a number. Blender's glTF exporter writes a
# collection's objects as loose nodes, so the written .glb is given a node per
# level holding them, the levels siblings at the scene's root; a hidden level
# gets `visible: false`, which the export reads as a level left out.

import json
import re
import struct

import bpy

LEVEL = re.compile(r"LOD_(\d+)", re.IGNORECASE)


def number(name):
    """The level's number: the digits after the last LOD_ of its name, or None."""
    found = LEVEL.findall(name)
    return int(found[-1]) if found else None


def _layer_collection(layer, collection):
    if layer.collection == collection:
        return layer
    for child in layer.children:
        found = _layer_collection(child, collection)
        if found:
            return found
    return None


def find(context):
    """The scene's levels, largest number first: (name, number, hidden, kind)."""
    scene, levels = context.scene, []
    for collection in scene.collection.children_recursive:
        if number(collection.name) is None:
            continue
        layer = _layer_collection(context.view_layer.layer_collection, collection)
        hidden = collection.hide_viewport or (layer is not None and (layer.exclude or layer.hide_viewport))
        levels.append((collection.name, number(collection.name), bool(hidden), 'COLLECTION'))
    for obj in scene.objects:
        if obj.type == 'EMPTY' and obj.parent is None and number(obj.name) is not None:
            levels.append((obj.name, number(obj.name), obj.hide_get() or obj.hide_viewport, 'EMPTY'))
    return sorted(levels, key=lambda level: -level[1])


def _read_glb(path):
    with open(path, "rb") as f:
        data = f.read()
    length = struct.unpack_from("<I", data, 12)[0]
    return json.loads(data[20:20 + length]), data[20 + length:]


def _write_glb(path, document, rest):
    text = json.dumps(document, separators=(",", ":")).encode()
    text += b" " * (-len(text) % 4)
    with open(path, "wb") as f:
        f.write(struct.pack("<4sII", b"glTF", 2, 12 + 8 + len(text) + len(rest)))
        f.write(struct.pack("<I4s", len(text), b"JSON") + text + rest)


def group(path, context, levels):
    """Gives each collection level a node of its own in the .glb, holding its
    objects, and marks hidden levels so that the export leaves them out."""
    document, rest = _read_glb(path)
    nodes = document.setdefault("nodes", [])
    roots = document["scenes"][document.get("scene", 0)].setdefault("nodes", [])
    index = {node.get("name"): i for i, node in enumerate(nodes)}
    for name, _, hidden, kind in levels:
        if kind == 'EMPTY':
            if name in index and hidden:
                nodes[index[name]].setdefault("extras", {})["visible"] = False
            continue
        objects = bpy.data.collections[name].all_objects
        children = [index[o.name] for o in objects if o.name in index and index[o.name] in roots]
        roots[:] = [r for r in roots if r not in children]
        nodes.append({"name": name, "children": children})
        if hidden:
            nodes[-1]["extras"] = {"visible": False}
        roots.append(len(nodes) - 1)
    _write_glb(path, document, rest)
