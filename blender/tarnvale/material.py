# Properties > Material > Flight simulator: the material's simulator text, and
# the editor, presets and library on it through `tarnvale material ... --stdin`.

import json
import os
import tempfile

import bpy
from bpy.props import IntProperty, StringProperty

from . import compat
from .preferences import TarnvaleError, common_options, prefs, run, start

PRESETS = ("General Material", "Propeller", "Gloss", "Chrome", "Tail Number")
SHOWN_KEYS = ("SrcBlend", "DstBlend", "AlphaTestFunction", "EmissiveData", "DoubleSided", "EmissiveTexture")


def _principled(material):
    if material.use_nodes and material.node_tree:
        for node in material.node_tree.nodes:
            if node.type == 'BSDF_PRINCIPLED':
                return node
    return None


def _image_of(socket):
    """The image of a texture node linked to the socket, through a normal map node."""
    if socket is None or not socket.is_linked:
        return None
    node = socket.links[0].from_node
    if node.type == 'NORMAL_MAP':
        return _image_of(node.inputs.get('Color'))
    return node.image if node.type == 'TEX_IMAGE' else None


def gltf_document(context, material):
    """The material as Blender's glTF exporter writes it, as far as tarnvale reads it."""
    bsdf = _principled(material)
    inputs = bsdf.inputs if bsdf else {}
    colour = list(inputs['Base Color'].default_value) if bsdf else list(material.diffuse_color)
    colour[3] = inputs['Alpha'].default_value if bsdf else colour[3]
    gltf = {"name": material.name,
            "pbrMetallicRoughness": {"baseColorFactor": colour,
                                     "roughnessFactor": inputs['Roughness'].default_value if bsdf else material.roughness},
            "emissiveFactor": compat.emissive_factor(inputs) if bsdf else [0, 0, 0],
            "doubleSided": not material.use_backface_culling,
            "extras": {key: value for key, value in material.items() if isinstance(value, str)}}
    mode, cutoff = compat.alpha_mode(material, inputs)
    if mode != "OPAQUE":
        gltf["alphaMode"] = mode
    if cutoff is not None:
        gltf["alphaCutoff"] = cutoff
    if "tarnvale_specular" in material:
        gltf["extras"]["tarnvale_specular"] = list(material["tarnvale_specular"])
    document = {"asset": {"version": "2.0"}, "materials": [gltf], "images": [], "textures": []}
    for slot, socket in (("baseColorTexture", inputs.get('Base Color')), ("normalTexture", inputs.get('Normal'))):
        image = _image_of(socket)
        if image is not None:
            path = bpy.path.abspath(image.filepath) if image.filepath else image.name + ".png"
            document["images"].append({"uri": path.replace(os.sep, "/")})
            document["textures"].append({"source": len(document["images"]) - 1})
            target = gltf["pbrMetallicRoughness"] if slot == "baseColorTexture" else gltf
            target[slot] = {"index": len(document["textures"]) - 1}
    return json.dumps(document)


def run_on_material(context, material, arguments):
    """Runs a material command on the material; gives its standard output."""
    code, out, err = run(context, ["material"] + arguments + ["--stdin"] + common_options(context),
                         stdin=gltf_document(context, material))
    if code == 3:
        raise TarnvaleError("Cancelled: the material is as it was")
    if code != 0:
        raise TarnvaleError(err.strip().replace("tarnvale: ", "") or "tarnvale failed (exit code %d)" % code)
    return out


def take_edit(context, material, out):
    """Keeps what the editor gave: the text form and a picked specular colour."""
    answer = json.loads(out)
    material[prefs(context).field_id] = answer["text"]
    if answer.get("specular"):
        material["tarnvale_specular"] = answer["specular"]


def library_folder(context):
    code, out, err = run(context, ["material", "library"] + common_options(context))
    if code != 0:
        raise TarnvaleError(err.strip().replace("tarnvale: ", ""))
    lines = out.splitlines()
    return lines[0], lines[1:]


class MaterialOperator:
    bl_options = {'REGISTER', 'UNDO'}

    @classmethod
    def poll(cls, context):
        return context.material is not None

    def execute(self, context):
        try:
            self.act(context, context.material)
        except TarnvaleError as error:
            self.report({'INFO'} if str(error).startswith("Cancelled") else {'ERROR'}, str(error))
            return {'CANCELLED'}
        return {'FINISHED'}


class EditSession:
    """The editor running beside Blender: started, then asked whether it is done,
    so that Blender keeps drawing and answering while it is open."""

    def __init__(self, context, material):
        self.material = material
        self.errors = tempfile.TemporaryFile("w+", encoding="utf-8", errors="replace")
        self.process = start(context, ["material", "edit", "--stdin"] + common_options(context), self.errors,
                             stdin=gltf_document(context, material))

    def done(self, context):
        """None while the editor is open; then what became of it, taken into the material."""
        if self.process.poll() is None:
            return None
        out = self.process.stdout.read()
        self.errors.seek(0)
        err = self.errors.read()
        self.errors.close()
        code = self.process.returncode
        if code == 3:
            raise TarnvaleError("Cancelled: the material is as it was")
        if code != 0:
            raise TarnvaleError(err.strip().replace("tarnvale: ", "") or "tarnvale failed (exit code %d)" % code)
        take_edit(context, self.material, out)
        return True


class TARNVALE_OT_material_edit(MaterialOperator, bpy.types.Operator):
    """Edit the material's simulator parameters in the simulator's material editor"""
    bl_idname = "material.tarnvale_edit"
    bl_label = "Edit Simulator Material"

    def act(self, context, material):
        take_edit(context, material, run_on_material(context, material, ["edit"]))

    def invoke(self, context, event):
        # From the panel: the editor's window beside Blender's, which stays live.
        try:
            self.session = EditSession(context, context.material)
        except TarnvaleError as error:
            self.report({'ERROR'}, str(error))
            return {'CANCELLED'}
        self.timer = context.window_manager.event_timer_add(0.2, window=context.window)
        context.window_manager.modal_handler_add(self)
        return {'RUNNING_MODAL'}

    def modal(self, context, event):
        if event.type != 'TIMER':
            return {'PASS_THROUGH'}
        try:
            if self.session.done(context) is None:
                return {'PASS_THROUGH'}
            result = {'FINISHED'}
        except TarnvaleError as error:
            self.report({'INFO'} if str(error).startswith("Cancelled") else {'ERROR'}, str(error))
            result = {'CANCELLED'}
        context.window_manager.event_timer_remove(self.timer)
        return result


class TARNVALE_OT_material_preset(MaterialOperator, bpy.types.Operator):
    """Apply a standard material of the simulator's aircraft"""
    bl_idname = "material.tarnvale_preset"
    bl_label = "Apply Standard Material"
    preset: IntProperty(min=0, max=len(PRESETS) - 1)

    def act(self, context, material):
        take_edit(context, material, run_on_material(context, material, ["apply", "--preset", str(self.preset)]))


class TARNVALE_OT_material_load(MaterialOperator, bpy.types.Operator):
    """Load a saved material from the library, as the editor's Load and OK do"""
    bl_idname = "material.tarnvale_load"
    bl_label = "Load Saved Material"
    name: StringProperty()

    def act(self, context, material):
        folder, _ = library_folder(context)
        path = os.path.join(folder, self.name)
        take_edit(context, material, run_on_material(context, material, ["apply", "--from", path]))


class TARNVALE_OT_material_save(MaterialOperator, bpy.types.Operator):
    """Save the material in the library, as the editor's Save does"""
    bl_idname = "material.tarnvale_save"
    bl_label = "Save Material in the Library"
    bl_options = {'REGISTER'}
    name: StringProperty(name="Name", default="Material")

    def invoke(self, context, event):
        self.name = context.material.name
        return context.window_manager.invoke_props_dialog(self)

    def act(self, context, material):
        folder, _ = library_folder(context)
        name = self.name if self.name.lower().endswith(".fsxmat") else self.name + ".FSXMat"
        run_on_material(context, material, ["save", "--to", os.path.join(folder, name)])
        self.report({'INFO'}, "Saved %s in %s" % (name, folder))


class TARNVALE_OT_material_show(MaterialOperator, bpy.types.Operator):
    """Show the record the export derives for this material, and its FS10Material block"""
    bl_idname = "material.tarnvale_show"
    bl_label = "Show Simulator Material"
    bl_options = {'REGISTER'}

    def act(self, context, material):
        out = run_on_material(context, material, ["show"])
        self.report({'INFO'}, out.splitlines()[2] if len(out.splitlines()) > 2 else out)


class TARNVALE_MT_presets(bpy.types.Menu):
    bl_label = "Standard Materials"

    def draw(self, context):
        for index, caption in enumerate(PRESETS):
            self.layout.operator(TARNVALE_OT_material_preset.bl_idname, text=caption).preset = index


class TARNVALE_MT_library(bpy.types.Menu):
    bl_label = "Saved Materials"

    def draw(self, context):
        try:
            _, names = library_folder(context)
        except TarnvaleError as error:
            self.layout.label(text=str(error))
            return
        if not names:
            self.layout.label(text="No saved material")
        for name in names:
            self.layout.operator(TARNVALE_OT_material_load.bl_idname, text=name).name = name


class TARNVALE_PT_material(bpy.types.Panel):
    bl_label = "Flight simulator"
    bl_space_type = 'PROPERTIES'
    bl_region_type = 'WINDOW'
    bl_context = "material"

    @classmethod
    def poll(cls, context):
        return context.material is not None

    def draw(self, context):
        layout = self.layout
        material = context.material
        field = prefs(context).field_id
        text = material.get(field)
        if isinstance(text, str):
            layout.prop(material, '["%s"]' % field, text="Text")
            values = dict(element.split("=", 1) for element in text.split(";") if "=" in element)
            column = layout.column(align=True)
            for key in SHOWN_KEYS:
                if key in values:
                    column.label(text="%s: %s" % (key, values[key] or "(none)"))
        else:
            layout.label(text="No simulator text: the export derives one")
            layout.operator(TARNVALE_OT_material_show.bl_idname, text="Show the Derived Record")
        if "tarnvale_specular" in material:
            layout.label(text="Specular colour: %.3f, %.3f, %.3f" % tuple(material["tarnvale_specular"]))
        row = layout.row(align=True)
        row.operator(TARNVALE_OT_material_edit.bl_idname, text="Edit…")
        row.menu(TARNVALE_MT_presets.__name__, text="Standard")
        row = layout.row(align=True)
        row.menu(TARNVALE_MT_library.__name__, text="Load")
        row.operator(TARNVALE_OT_material_save.bl_idname, text="Save…")


classes = [TARNVALE_OT_material_edit, TARNVALE_OT_material_preset, TARNVALE_OT_material_load,
           TARNVALE_OT_material_save, TARNVALE_OT_material_show, TARNVALE_MT_presets, TARNVALE_MT_library,
           TARNVALE_PT_material]
