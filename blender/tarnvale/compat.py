# What differs between the Blenders the add-on runs in: Debian's 3.4, where it is
# tested, and 4.2 to 4.5, read from their API documentation. Each function takes
# what it reads as arguments, so that stand-ins can play a Blender of any version.

import bpy


def action_fcurves(action):
    """Every F-curve of an action: from 4.4 an action keeps them per layer, strip
    and slot (channelbags), and `Action.fcurves` holds only the first slot's."""
    layers = getattr(action, "layers", None)
    if layers:
        return [curve for layer in layers for strip in layer.strips
                for bag in getattr(strip, "channelbags", ()) for curve in bag.fcurves]
    return list(action.fcurves)


def assign_action(data, action, obj):
    """Makes `action` the action of an object's animation data; from 4.4 it also
    takes the action's slot for the object (its own, else the first for objects),
    which assigning the action alone leaves empty where the names differ."""
    data.action = action
    slots = getattr(action, "slots", None)
    if not slots or not hasattr(data, "action_slot") or data.action_slot is not None:
        return
    for slot in slots:
        if slot.identifier == "OB" + obj.name:
            data.action_slot = slot
            return
    for slot in slots:
        if getattr(slot, "target_id_type", 'OBJECT') in ('OBJECT', 'UNSPECIFIED'):
            data.action_slot = slot
            return


def emissive_factor(inputs):
    """The emissive colour the glTF exporter writes from a Principled BSDF: the
    colour ("Emission" up to 3.x, "Emission Color" from 4.0) times "Emission
    Strength", each channel at most 1. From 4.0 the colour is white by default and
    the strength 0: not emissive."""
    colour = inputs.get('Emission Color') or inputs.get('Emission')
    if colour is None:
        return [0.0, 0.0, 0.0]
    strength = inputs.get('Emission Strength')
    scale = strength.default_value if strength is not None else 1.0
    return [min(1.0, max(0.0, c * scale)) for c in list(colour.default_value)[:3]]


def alpha_mode(material, inputs, version=None):
    """glTF's alphaMode (and cutoff) of a material. Up to 4.1 its blend method says
    it; from 4.2 that is gone (EEVEE Next), and the node tree says it as the glTF
    exporter reads it: an Alpha input below 1 or linked is BLEND, fed by a Math node
    that rounds it or tests it greater than a threshold is MASK."""
    version = version or bpy.app.version
    if version < (4, 2, 0):
        if material.blend_method == 'CLIP':
            return "MASK", material.alpha_threshold
        return ("BLEND", None) if material.blend_method in ('BLEND', 'HASHED') else ("OPAQUE", None)
    alpha = inputs.get('Alpha')
    if alpha is None:
        return "OPAQUE", None
    if alpha.is_linked:
        node = alpha.links[0].from_node
        if node.type == 'MATH' and node.operation == 'GREATER_THAN':
            return "MASK", node.inputs[1].default_value
        if node.type == 'MATH' and node.operation == 'ROUND':
            return "MASK", 0.5
        return "BLEND", None
    return ("BLEND", None) if alpha.default_value < 1.0 else ("OPAQUE", None)


def gltf_animation_options(exporter_properties, picked):
    """How the glTF exporter is told which actions to write: 4.2's
    `export_animation_mode` (the picked action merged with the active ones, or
    each action), else 3.x's `export_nla_strips`."""
    if "export_animation_mode" in exporter_properties:
        return {"export_animation_mode": 'ACTIVE_ACTIONS' if picked else 'ACTIONS'}
    return {"export_nla_strips": not picked}
