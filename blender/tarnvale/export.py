# File > Export > Flight Sim X (.MDL): Blender's glTF exporter writes the scene to
# a temporary .glb, and `tarnvale export --report json` makes the model's files.
# The dialog's Check runs `tarnvale check --json` on the same .glb and lists what
# it finds; the export checks first too, and its findings stay listed.

import atexit
import contextlib
import hashlib
import json
import os
import shutil
import tempfile
import textwrap

import bpy
from bpy.app.handlers import persistent
from bpy.props import BoolProperty, EnumProperty, StringProperty
from bpy_extras.io_utils import ExportHelper

from . import compat
from . import levels as lod
from .preferences import TarnvaleError, common_options, prefs, run, start


def kept_name(context, path):
    """The friendly name kept beside an X file, as the export dialog would show it."""
    try:
        code, out, _ = run(context, ["sidecar", bpy.path.abspath(path)])
    except TarnvaleError:
        return ""
    return (json.loads(out).get("name") or "") if code == 0 and out.startswith("{") else ""


def _owners(context, action):
    """The objects an action was made for: those whose action it is, now or in
    their NLA strips; for an action of nobody's, the objects its name starts with
    ("l_aileronAction") that have what it animates."""
    owners = []
    for obj in context.scene.objects:
        data = obj.animation_data
        if data and (data.action == action or any(strip.action == action for track in data.nla_tracks
                                                   for strip in track.strips)):
            owners.append(obj)
    return owners or [obj for obj in context.scene.objects if action.name.startswith(obj.name)
                      and all(_resolves(obj, curve.data_path) for curve in compat.action_fcurves(action))]


@contextlib.contextmanager
def chosen_action(context, name):
    """Makes the action, for the export's time, the action of the objects it was
    made for; every other object keeps its own animation."""
    if not name:
        yield
        return
    action = bpy.data.actions.get(name)
    if action is None:
        raise TarnvaleError("There is no action named %s" % name)
    owners = _owners(context, action)
    if not owners:
        raise TarnvaleError("The action %s belongs to no object: make it the action of the object it animates"
                            % name)
    previous = {}
    for obj in owners:
        data = obj.animation_data or obj.animation_data_create()
        previous[obj] = (data.action, getattr(data, "action_slot", None))
        compat.assign_action(data, action, obj)
    try:
        yield
    finally:
        for obj, (old, slot) in previous.items():
            obj.animation_data.action = old
            if slot is not None:
                obj.animation_data.action_slot = slot


def _resolves(obj, data_path):
    try:
        obj.path_resolve(data_path)
        return True
    except ValueError:
        return False


WHAT = (('SCENE', "Scene", "The whole scene"),
        ('COLLECTION', "Active collection", "The objects of the active collection"),
        ('SELECTION', "Selection", "The selected objects"))
LEVELS = {"error": 'ERROR', "warning": 'WARNING', "info": 'INFO'}
ICONS = {"error": 'CANCEL', "warning": 'ERROR', "info": 'INFO'}  # Blender's ERROR icon is its warning sign
SHOWN = 12  # findings listed in the dialog; the rest are counted


LEVEL_CHOICES = (('ALL', "All found", "Export the levels of detail the scene holds, each as a root frame"),
                 ('NONE', "None", "Export the scene as it is, levels or not"))


def write_scene(context, folder, what, action, levels='ALL'):
    """The scene (or its collection or selection) as Blender's glTF exporter writes
    it, and the command's options that go with it: with levels of detail, the
    levels as siblings and the export started from the largest."""
    scene = os.path.join(folder, "scene.glb")
    with chosen_action(context, action):
        bpy.ops.export_scene.gltf(
            filepath=scene, export_format='GLB', export_extras=True, export_yup=True, export_apply=True,
            use_selection=what == 'SELECTION', use_active_collection=what == 'COLLECTION',
            export_animations=True, export_skins=True,
            **compat.gltf_animation_options(bpy.ops.export_scene.gltf.get_rna_type().properties.keys(), bool(action)))
    found = lod.find(context) if levels == 'ALL' else []
    if not found:
        return scene, []
    lod.group(scene, context, found)
    return scene, ["--group", found[0][0]]


# The last .glb written for each way of exporting, kept while the scene has not
# changed since, so that Check and the export after it write it once (a large
# scene takes seconds). A change is what the depsgraph reports, plus what it does
# not: custom properties (part data, material texts, visibility) and the frame.
_written = {"changes": 0, "folder": None, "files": {}}


@persistent
def _scene_changed(*_):
    _written["changes"] += 1


def _fingerprint(context, key):
    digest = hashlib.sha1(repr((key, bpy.data.filepath, context.scene.name, context.scene.frame_current,
                                _written["changes"])).encode())
    for collection in (bpy.data.objects, bpy.data.materials, bpy.data.collections, bpy.data.actions):
        for block in collection:
            digest.update(repr((block.name, sorted((k, repr(v)) for k, v in block.items()))).encode())
    return digest.hexdigest()


def scene_file(context, what, action, levels):
    """The .glb of the scene as the export takes it, and the group option: the one
    written before while nothing has changed, else a new one."""
    context.evaluated_depsgraph_get()  # changes made since are reported now
    key = (what, action, levels)
    fingerprint = _fingerprint(context, key)
    kept = _written["files"].get(key)
    if kept and kept[0] == fingerprint and os.path.isfile(kept[1]):
        return kept[1], kept[2]
    if not _written["folder"]:
        _written["folder"] = tempfile.mkdtemp(prefix="tarnvale-")
        atexit.register(shutil.rmtree, _written["folder"], True)
    folder = os.path.join(_written["folder"], hashlib.sha1(repr(key).encode()).hexdigest()[:12])
    os.makedirs(folder, exist_ok=True)
    scene, group = write_scene(context, folder, what, action, levels)
    context.evaluated_depsgraph_get()
    _written["files"][key] = (_fingerprint(context, key), scene, group)
    return scene, group


class TarnvaleFinding(bpy.types.PropertyGroup):
    kind: StringProperty()
    severity: StringProperty()
    node: StringProperty()
    frame: StringProperty()
    material: StringProperty()
    message: StringProperty()


class TarnvaleLevel(bpy.types.PropertyGroup):
    level: StringProperty()
    shown: BoolProperty()
    triangles: bpy.props.IntProperty()
    draw_calls: bpy.props.IntProperty()
    largest_draw: bpy.props.IntProperty()


def keep_levels(context, levels):
    """Keeps what each level costs to draw (the check's "levels", the export's
    "budget" lines), where the dialog shows them as a table."""
    kept = context.window_manager.tarnvale_levels
    kept.clear()
    for level in levels:
        row = kept.add()
        row.level, row.shown, row.triangles = level["level"], level["shown"], level["triangles"]
        row.draw_calls, row.largest_draw = level["drawCalls"], level["largestDraw"]


def draw_levels(layout, context):
    levels = context.window_manager.tarnvale_levels
    if not levels:
        return
    grid = layout.box().grid_flow(columns=4, even_columns=False, align=True)
    for text in ("Level", "Triangles", "Draw calls", "Largest draw"):
        grid.label(text=text)
    for row in levels:
        grid.label(text=row.level if row.shown else row.level + " (hidden)")
        for value in (row.triangles, row.draw_calls, row.largest_draw):
            grid.label(text="{:,}".format(value), icon='ERROR' if value is row.largest_draw and value > 65535 else 'NONE')


ORDER = {"error": 0, "warning": 1, "info": 2}


def keep_findings(context, findings):
    """Keeps the last check's findings on the window manager, where the dialog lists
    them: errors first, then warnings, then notes, each in the scene's order."""
    window_manager = context.window_manager
    window_manager.tarnvale_findings.clear()
    for finding in sorted(findings, key=lambda f: ORDER.get(f["severity"], 2)):
        kept = window_manager.tarnvale_findings.add()
        for key in ("kind", "severity", "node", "frame", "material", "message"):
            setattr(kept, key, finding.get(key) or "")
    counts = [(sum(f["severity"] == s for f in findings), word) for s, word in
              (("error", "error"), ("warning", "warning"), ("info", "note"))]
    window_manager.tarnvale_checked = ", ".join("%d %s%s" % (n, word, "" if n == 1 else "s") for n, word in counts)


def concerns(node, frame, material):
    """What a finding is about, as the modeller named it."""
    if node:
        return "%s (%s)" % (node, frame) if frame else node
    return "material " + material if material else "the scene"


def draw_findings(layout, context, operator):
    window_manager = context.window_manager
    box = layout.box()
    check = box.operator(TARNVALE_OT_check.bl_idname, text="Check", icon='VIEWZOOM')
    check.what, check.action, check.textures = operator.what, operator.action, bool(operator.textures)
    check.levels = operator.levels
    box.label(text=window_manager.tarnvale_checked or "Not checked yet")
    # Labels do not wrap: cut the messages to the width the panel has.
    region = getattr(context, "region", None)
    width = max(24, int(region.width / (6.5 * context.preferences.view.ui_scale)) - 6) if region else 34
    findings = [f for f in window_manager.tarnvale_findings if f.severity != "info"]
    notes = len(window_manager.tarnvale_findings) - len(findings)
    for finding in findings[:SHOWN]:
        column = box.column(align=True)
        about = concerns(finding.node, "", finding.material)  # the X file's frame name only in the reports
        column.label(text="%s: %s" % (about, finding.kind), icon=ICONS.get(finding.severity, 'INFO'))
        for line in textwrap.wrap(finding.message, width, break_on_hyphens=False):
            column.label(text=line)
    if len(findings) > SHOWN:
        box.label(text="and %d more in the Info editor" % (len(findings) - SHOWN))
    if notes:  # what the export does on its own: counted, listed in the Info editor
        box.label(text="%d note%s in the Info editor" % (notes, "" if notes == 1 else "s"), icon='INFO')


def report_findings(operator, findings, levels=LEVELS):
    for finding in findings:
        about = concerns(finding.get("node"), finding.get("frame"), finding.get("material"))
        operator.report({levels.get(finding["severity"], 'INFO')},
                        "%s %s %s: %s" % (finding["severity"], finding["kind"], about, finding["message"]))


class TARNVALE_OT_check(bpy.types.Operator):
    """Check the scene as the export would read it, and list what would make the export or the compile fail"""

    bl_idname = "export_scene.tarnvale_check"
    bl_label = "Check Flight Sim X"

    what: EnumProperty(name="Export", items=WHAT, default='SCENE')
    action: StringProperty(name="Animation")
    textures: BoolProperty(name="Textures converted")
    levels: EnumProperty(name="Levels of detail", items=LEVEL_CHOICES, default='ALL')

    def execute(self, context):
        try:
            scene, group = scene_file(context, self.what, self.action, self.levels)
            arguments = ["check", scene, "--json"] + group + common_options(context) + registry_option(context)
            code, out, err = run(context, arguments + (["--textures"] if self.textures else []))
        except TarnvaleError as error:
            self.report({'ERROR'}, str(error))
            return {'CANCELLED'}
        result = json.loads(out) if out.startswith("{") else {"error": err.strip()[-300:]}
        if code not in (0, 1) or "findings" not in result:
            self.report({'ERROR'}, "The scene cannot be checked: " + result.get("error", ""))
            return {'CANCELLED'}
        keep_findings(context, result["findings"])
        keep_levels(context, result.get("levels", []))
        # A check that finds errors has done its work: no error report, which would fail a script.
        report_findings(self, result["findings"], dict(LEVELS, error='WARNING'))
        self.report({'INFO'}, "Check: " + context.window_manager.tarnvale_checked)
        return {'FINISHED'}


def registry_option(context):
    registry = prefs(context).registry
    return ["--registry", bpy.path.abspath(registry)] if registry else []


class TARNVALE_OT_export(bpy.types.Operator, ExportHelper):
    """Export the scene as the source files of a flight-simulator model (X, XANIM and sidecar)"""

    bl_idname = "export_scene.tarnvale_x"
    bl_label = "Export Flight Sim X"
    bl_options = {'PRESET'}
    filename_ext = ".x"

    filter_glob: StringProperty(default="*.x", options={'HIDDEN'})
    what: EnumProperty(name="Export", items=WHAT, default='SCENE')
    friendly_name: StringProperty(name="Name",
                                  description="The model's name; empty: the one kept beside the file")
    action: StringProperty(name="Animation", description="The action to export; empty: the actions as assigned")
    textures: StringProperty(name="Textures", subtype='DIR_PATH',
                             description="Write every texture the model names as DDS into this folder")
    run_tool: BoolProperty(name="Run the SDK's tool", default=True,
                           description="Compile the files with the SDK's xtomdl.exe when it is found")
    check_first: BoolProperty(name="Check first", default=True,
                              description="Check the scene first: an error found stops the export")
    levels: EnumProperty(name="Levels of detail", items=LEVEL_CHOICES, default='ALL')
    generate: StringProperty(name="Generate levels",
                             description="For a model made as one level: the levels to make, largest first "
                             "(100,50,25), each with about half the triangles of the one before")
    will_save_settings: BoolProperty(name="Remember Export Settings", default=False,
                                     description="Keep these options in the .blend for the next export")
    shown_path: StringProperty(options={'HIDDEN', 'SKIP_SAVE'})

    def invoke(self, context, event):
        for key, value in remembered(context).items():
            if hasattr(self, key):
                setattr(self, key, value)
        return super().invoke(context, event)

    def check(self, context):
        changed = super().check(context)
        if self.filepath != self.shown_path:
            self.shown_path = self.filepath
            self.friendly_name = kept_name(context, self.filepath)
            changed = True
        return changed

    def draw(self, context):
        # The rest stands in the sub-panels below, grouped as the glTF exporter's.
        layout = self.layout
        layout.use_property_split = True
        layout.use_property_decorate = False
        layout.prop(self, "what")
        layout.prop(self, "friendly_name")
        layout.prop(self, "will_save_settings")

    def execute(self, context):
        remember(context, self)
        try:
            return self.export(context)
        except TarnvaleError as error:
            self.report({'ERROR'}, str(error))
            return {'CANCELLED'}

    def export(self, context):
        scene, group = scene_file(context, self.what, self.action, self.levels)
        with tempfile.TemporaryFile("w+", encoding="utf-8", errors="replace") as errors:
            report = self.follow(context, start(context, self.arguments(context, scene) + group, errors))
            errors.seek(0)
            report["stderr"] = errors.read()
        return self.tell(context, report)

    def arguments(self, context, scene):
        arguments = ["export", scene, "-o", bpy.path.abspath(self.filepath), "--report", "json"]
        arguments += common_options(context) + registry_option(context)
        # The name kept beside the file, or for a new file the file's own name:
        # the scene's name ("Scene") names no model.
        path = bpy.path.abspath(self.filepath)
        name = self.friendly_name or kept_name(context, path) or os.path.splitext(os.path.basename(path))[0]
        arguments += ["--name", name]
        if self.textures:
            arguments += ["--textures", bpy.path.abspath(self.textures)]
        if not self.run_tool:
            arguments.append("--no-tool")
        if self.check_first:
            arguments.append("--check")
        if self.generate:
            arguments += ["--generate-lods", self.generate]
        return arguments

    def follow(self, context, process):
        """Reads the command's report line by line, its stages driving the progress bar."""
        report = {"box": [], "warning": [], "error": [], "finding": [], "budget": [], "texture": [],
                  "result": None}
        window_manager = context.window_manager
        window_manager.progress_begin(0, 100)
        with process:
            for line in process.stdout:
                item = json.loads(line) if line.startswith("{") else {}
                if "stage" in item:
                    window_manager.progress_update(int(item["share"] * 100))
                for kind in ("box", "warning", "error", "finding", "budget", "texture"):
                    if kind in item:
                        report[kind].append(item[kind])
                if "result" in item:
                    report["result"] = item["result"]
        window_manager.progress_end()
        return report

    def tell(self, context, report):
        keep_levels(context, report["budget"])
        if self.check_first:
            keep_findings(context, report["finding"])
            report_findings(self, report["finding"])
        for text in report["warning"]:
            self.report({'WARNING'}, text)
        failed = report["result"] is None or report["result"]["code"] != 0
        for box in report["box"]:
            box = dict(box, text="\n".join(closing_lines(box["text"], report["texture"])))
            level = {'critical': 'ERROR', 'information': 'INFO'}.get(box["icon"], 'WARNING')
            self.report({level}, "%s: %s" % (box["title"], box["text"].replace("\n", " ")))
            if level == 'INFO' and not bpy.app.background and context.window:
                show_box(context, box)
        for text in report["error"]:
            self.report({'ERROR'}, text)
        if report["result"] is None:
            self.report({'ERROR'}, "tarnvale ended without a result: " + report["stderr"].strip()[-300:])
        return {'CANCELLED'} if failed else {'FINISHED'}


def _draw_include(layout, context, operator):
    layout.prop_search(operator, "action", bpy.data, "actions")
    found = lod.find(context)
    if found:
        layout.prop(operator, "levels")
        layout.label(text=", ".join(name + (" (hidden)" if hidden else "") for name, _, hidden, _ in found))
    else:
        layout.prop(operator, "generate")


def _draw_output(layout, context, operator):
    layout.prop(operator, "textures")
    layout.prop(operator, "run_tool")
    layout.prop(operator, "check_first")


def _draw_check(layout, context, operator):
    draw_findings(layout, context, operator)
    draw_levels(layout, context)


def _dialog_panel(label, draw_part):
    """A sub-panel of the export dialog, as the glTF exporter has them."""

    def draw(self, context):
        self.layout.use_property_split = True
        self.layout.use_property_decorate = False
        draw_part(self.layout, context, context.space_data.active_operator)

    return type("TARNVALE_PT_export_" + label.lower(), (bpy.types.Panel,), {
        "bl_space_type": 'FILE_BROWSER', "bl_region_type": 'TOOL_PROPS', "bl_label": label,
        "bl_parent_id": "FILE_PT_operator",
        "poll": classmethod(lambda cls, context: getattr(context.space_data, "active_operator", None) is not None
                            and context.space_data.active_operator.bl_idname == "EXPORT_SCENE_OT_tarnvale_x"),
        "draw": draw,
    })


DIALOG_PANELS = [_dialog_panel("Include", _draw_include), _dialog_panel("Output", _draw_output),
                 _dialog_panel("Check", _draw_check)]


def closing_lines(text, textures):
    """A box's text as Blender shows it: each line once (the file's text names a
    texture once per material), and where the export wrote the DDS files, those
    in place of the warnings that they need converting."""
    lines = []
    for line in text.splitlines():
        converted = textures and line.startswith("Warning - ") and line.endswith("will need converting")
        if not converted and line not in lines:
            lines.append(line)
    return lines[:-1] + ["Wrote " + texture for texture in textures] + lines[-1:]


SETTINGS = "tarnvale_export_settings"  # a scene property, as Blender's glTF exporter keeps its own
KEPT = ("what", "action", "textures", "run_tool", "check_first", "levels", "generate", "will_save_settings")


def remembered(context):
    """The export options kept in the .blend, when the last export was told to keep them."""
    return dict(context.scene.get(SETTINGS, {}))


def remember(context, operator):
    if operator.will_save_settings:
        context.scene[SETTINGS] = {key: getattr(operator, key) for key in KEPT}
    elif SETTINGS in context.scene:
        del context.scene[SETTINGS]


def show_box(context, box):
    def draw(menu, _context):
        for line in box["text"].splitlines():
            menu.layout.label(text=line)
    context.window_manager.popup_menu(draw, title=box["title"], icon='INFO')


def menu_entry(self, context):
    self.layout.operator(TARNVALE_OT_export.bl_idname, text="Flight Sim X (.MDL)")


classes = [TarnvaleFinding, TarnvaleLevel, TARNVALE_OT_check, TARNVALE_OT_export] + DIALOG_PANELS


def register_properties():
    for handlers in (bpy.app.handlers.depsgraph_update_post, bpy.app.handlers.undo_post,
                     bpy.app.handlers.redo_post, bpy.app.handlers.load_post):
        handlers.append(_scene_changed)
    bpy.types.WindowManager.tarnvale_findings = bpy.props.CollectionProperty(type=TarnvaleFinding)
    bpy.types.WindowManager.tarnvale_checked = StringProperty()
    bpy.types.WindowManager.tarnvale_levels = bpy.props.CollectionProperty(type=TarnvaleLevel)


def unregister_properties():
    for handlers in (bpy.app.handlers.depsgraph_update_post, bpy.app.handlers.undo_post,
                     bpy.app.handlers.redo_post, bpy.app.handlers.load_post):
        if _scene_changed in handlers:
            handlers.remove(_scene_changed)
    del bpy.types.WindowManager.tarnvale_findings
    del bpy.types.WindowManager.tarnvale_checked
    del bpy.types.WindowManager.tarnvale_levels
