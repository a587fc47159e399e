# File > Export > Flight Sim X (.MDL): Blender's glTF exporter writes the scene to
# a temporary .glb, and `tarnvale export --report json` makes the model's files.

import contextlib
import json
import os
import tempfile

import bpy
from bpy.props import BoolProperty, EnumProperty, StringProperty
from bpy_extras.io_utils import ExportHelper

from .preferences import TarnvaleError, common_options, prefs, run, start


def kept_name(context, path):
    """The friendly name kept beside an X file, as the export dialog would show it."""
    try:
        code, out, _ = run(context, ["sidecar", bpy.path.abspath(path)])
    except TarnvaleError:
        return ""
    return (json.loads(out).get("name") or "") if code == 0 and out.startswith("{") else ""


@contextlib.contextmanager
def chosen_action(context, name):
    """Assigns the action, for the export's time, to the animated objects it fits."""
    if not name:
        yield
        return
    action = bpy.data.actions.get(name)
    if action is None:
        raise TarnvaleError("There is no action named %s" % name)
    previous = {}
    for obj in context.scene.objects:
        data = obj.animation_data
        if data is None or (data.action is None and not data.nla_tracks):
            continue
        if all(_resolves(obj, curve.data_path) for curve in action.fcurves):
            previous[obj] = data.action
            data.action = action
    if not previous:
        raise TarnvaleError("The action %s fits no animated object of the scene" % name)
    try:
        yield
    finally:
        for obj, old in previous.items():
            obj.animation_data.action = old


def _resolves(obj, data_path):
    try:
        obj.path_resolve(data_path)
        return True
    except ValueError:
        return False


class TARNVALE_OT_export(bpy.types.Operator, ExportHelper):
    """Export the scene as the source files of a flight-simulator model (X, XANIM and sidecar)"""

    bl_idname = "export_scene.tarnvale_x"
    bl_label = "Export Flight Sim X"
    filename_ext = ".x"

    filter_glob: StringProperty(default="*.x", options={'HIDDEN'})
    what: EnumProperty(
        name="Export",
        items=(('SCENE', "Scene", "The whole scene"),
               ('COLLECTION', "Active collection", "The objects of the active collection"),
               ('SELECTION', "Selection", "The selected objects")),
        default='SCENE',
    )
    friendly_name: StringProperty(name="Name",
                                  description="The model's name; empty: the one kept beside the file")
    action: StringProperty(name="Animation", description="The action to export; empty: the actions as assigned")
    textures: StringProperty(name="Textures", subtype='DIR_PATH',
                             description="Write every texture the model names as DDS into this folder")
    run_tool: BoolProperty(name="Run the SDK's tool", default=True,
                           description="Compile the files with the SDK's xtomdl.exe when it is found")
    shown_path: StringProperty(options={'HIDDEN', 'SKIP_SAVE'})

    def check(self, context):
        changed = super().check(context)
        if self.filepath != self.shown_path:
            self.shown_path = self.filepath
            self.friendly_name = kept_name(context, self.filepath)
            changed = True
        return changed

    def draw(self, context):
        layout = self.layout
        layout.use_property_split = True
        layout.use_property_decorate = False
        layout.prop(self, "what")
        layout.prop(self, "friendly_name")
        layout.prop_search(self, "action", bpy.data, "actions")
        layout.prop(self, "textures")
        layout.prop(self, "run_tool")

    def execute(self, context):
        try:
            return self.export(context)
        except TarnvaleError as error:
            self.report({'ERROR'}, str(error))
            return {'CANCELLED'}

    def export(self, context):
        with tempfile.TemporaryDirectory(prefix="tarnvale-") as folder:
            scene = os.path.join(folder, "scene.glb")
            with chosen_action(context, self.action):
                bpy.ops.export_scene.gltf(
                    filepath=scene, export_format='GLB', export_extras=True, export_yup=True, export_apply=True,
                    use_selection=self.what == 'SELECTION', use_active_collection=self.what == 'COLLECTION',
                    export_animations=True, export_skins=True, export_nla_strips=not self.action)
            with tempfile.TemporaryFile("w+", encoding="utf-8", errors="replace") as errors:
                report = self.follow(context, start(context, self.arguments(context, scene), errors))
                errors.seek(0)
                report["stderr"] = errors.read()
        return self.tell(context, report)

    def arguments(self, context, scene):
        arguments = ["export", scene, "-o", bpy.path.abspath(self.filepath), "--report", "json"]
        arguments += common_options(context)
        if prefs(context).registry:
            arguments += ["--registry", bpy.path.abspath(prefs(context).registry)]
        if self.friendly_name:
            arguments += ["--name", self.friendly_name]
        if self.textures:
            arguments += ["--textures", bpy.path.abspath(self.textures)]
        if not self.run_tool:
            arguments.append("--no-tool")
        return arguments

    def follow(self, context, process):
        """Reads the command's report line by line, its stages driving the progress bar."""
        report = {"box": [], "warning": [], "error": [], "result": None}
        window_manager = context.window_manager
        window_manager.progress_begin(0, 100)
        with process:
            for line in process.stdout:
                item = json.loads(line) if line.startswith("{") else {}
                if "stage" in item:
                    window_manager.progress_update(int(item["share"] * 100))
                for kind in ("box", "warning", "error"):
                    if kind in item:
                        report[kind].append(item[kind])
                if "result" in item:
                    report["result"] = item["result"]
        window_manager.progress_end()
        return report

    def tell(self, context, report):
        for text in report["warning"]:
            self.report({'WARNING'}, text)
        failed = report["result"] is None or report["result"]["code"] != 0
        for box in report["box"]:
            level = {'critical': 'ERROR', 'information': 'INFO'}.get(box["icon"], 'WARNING')
            self.report({level}, "%s: %s" % (box["title"], box["text"].replace("\n", " ")))
            if level == 'INFO' and not bpy.app.background and context.window:
                show_box(context, box)
        for text in report["error"]:
            self.report({'ERROR'}, text)
        if report["result"] is None:
            self.report({'ERROR'}, "tarnvale ended without a result: " + report["stderr"].strip()[-300:])
        return {'CANCELLED'} if failed else {'FINISHED'}


def show_box(context, box):
    def draw(menu, _context):
        for line in box["text"].splitlines():
            menu.layout.label(text=line)
    context.window_manager.popup_menu(draw, title=box["title"], icon='INFO')


def menu_entry(self, context):
    self.layout.operator(TARNVALE_OT_export.bl_idname, text="Flight Sim X (.MDL)")


classes = [TARNVALE_OT_export]
