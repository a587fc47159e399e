# Properties > Object > Flight simulator: the object's part data (a text of XML
# that the X file carries) as fields, and its visibility in the simulator. The
# command reads and edits the text; the panel shows what it says.

import json

import bpy

from .preferences import TarnvaleError, common_options, prefs, run


EMPTY_PART_DATA = '<FSMakeMdlData version="9.0"></FSMakeMdlData>'

# What the command said, kept while Blender runs: a text's elements (texts
# repeat across draws), and the model definition's parts per set of options.
_read = {}
_parts = {}
# Enum items must outlive the call that gives them, or Blender shows garbage.
_items = {}


def _document(obj, field):
    """The object as a glTF document of one node, as the command reads it."""
    text = obj.get(field)
    extras = {field: text} if isinstance(text, str) else {}
    return json.dumps({"asset": {"version": "2.0"}, "nodes": [{"name": obj.name, "extras": extras}]})


def _said(err):
    """The command's message without its name, for a report."""
    lines = [line for line in err.splitlines() if line.strip()]
    return lines[-1].replace("tarnvale: ", "", 1) if lines else "tarnvale failed"


def read_part_data(context, obj):
    """The object's part data as the command reads it: (elements, why it cannot
    be read or None)."""
    field = prefs(context).attach_id
    text = obj.get(field)
    if not isinstance(text, str) or not text.strip():
        return [], None
    if text not in _read:
        code, out, err = run(context, ["part", "show", "--stdin", "--json"] + common_options(context),
                             stdin=_document(obj, field))
        if code:
            _read[text] = ([], _said(err))
        else:
            node = json.loads(out)["nodes"][0]
            _read[text] = (node["elements"], node.get("error"))
    return _read[text]


def model_parts(context):
    """`tarnvale part list --json`: the model definition's parts and the surfaces."""
    key = tuple(common_options(context))
    if key not in _parts:
        code, out, err = run(context, ["part", "list", "--json"] + common_options(context))
        _parts[key] = json.loads(out) if code == 0 else {"parts": [], "surfaces": [], "error": _said(err)}
    return _parts[key]


def set_part_data(context, obj, arguments):
    """Runs `tarnvale part set` on the object's text; the new text replaces it."""
    field = prefs(context).attach_id
    code, out, err = run(context, ["part", "set", "--stdin", "--node", obj.name] + arguments + common_options(context),
                         stdin=_document(obj, field))
    if code:
        raise TarnvaleError(_said(err).replace("the scene is unchanged: ", ""))
    text = json.loads(out)["text"]
    if text:
        obj[field] = text
    elif field in obj:
        del obj[field]


def _visible_get(obj):
    return bool(obj.get("visible", True))


def _visible_set(obj, value):
    obj["visible"] = int(value)


class TARNVALE_OT_part_data_add(bpy.types.Operator):
    """Give the object part data, or a visibility flag"""
    bl_idname = "object.tarnvale_field_add"
    bl_label = "Add Simulator Field"
    bl_options = {'REGISTER', 'UNDO'}
    field: bpy.props.EnumProperty(items=(('PART', "Part data", ""), ('VISIBLE', "Visibility", "")))

    @classmethod
    def poll(cls, context):
        return context.object is not None

    def execute(self, context):
        if self.field == 'PART':
            context.object[prefs(context).attach_id] = EMPTY_PART_DATA
        else:
            context.object["visible"] = True
        return {'FINISHED'}


KINDS = (('visibility', "Visibility", "Shown as a part of the model definition says"),
         ('mouse-rect', "Mouse rect", "Clicked as a part of the model definition says"),
         ('effect', "Effect", "An effect at the object's origin"),
         ('library-object', "Library object", "A library object at the object's origin"),
         ('platform', "Platform", "A surface one can stand on"),
         ('no-crash', "No crash", "Takes no part in crashes"),
         ('remove', "Remove", "Remove the element of the kind given as value"))


class TARNVALE_OT_part_set(bpy.types.Operator):
    """Change one element of the object's part data"""
    bl_idname = "object.tarnvale_part_set"
    bl_label = "Set Part Data"
    bl_options = {'REGISTER', 'UNDO'}
    kind: bpy.props.EnumProperty(items=KINDS)
    value: bpy.props.StringProperty(name="Value")
    more: bpy.props.StringProperty(name="More", description="An effect's parameters, a library object's scale")

    @classmethod
    def poll(cls, context):
        return context.object is not None

    def invoke(self, context, event):
        if self.kind in ('effect', 'library-object'):
            return context.window_manager.invoke_props_dialog(self)
        return self.execute(context)

    def draw(self, context):
        effect = self.kind == 'effect'
        self.layout.prop(self, "value", text="Effect" if effect else "GUID")
        self.layout.prop(self, "more", text="Parameters" if effect else "Scale")

    def execute(self, context):
        arguments = ["--no-crash"] if self.kind == 'no-crash' else ["--" + self.kind, self.value]
        if self.more and self.kind in ('effect', 'library-object'):
            arguments += ["--params" if self.kind == 'effect' else "--scale", self.more]
        try:
            set_part_data(context, context.object, arguments)
        except TarnvaleError as error:
            self.report({'ERROR'}, str(error))
            return {'CANCELLED'}
        return {'FINISHED'}


def _picker(kind, label, names):
    """An operator whose menu lists what `names(context)` gives, and sets it."""

    def items(self, context):
        found = [(n, n, "") for n in names(context)] or [('', "(none in the model definition)", "")]
        _items[kind] = found
        return found

    def execute(self, context):
        if not self.pick:
            return {'CANCELLED'}
        return bpy.ops.object.tarnvale_part_set(kind=kind, value=self.pick)

    return type("TARNVALE_OT_pick_" + kind.replace("-", "_"), (bpy.types.Operator,), {
        "bl_idname": "object.tarnvale_pick_" + kind.replace("-", "_"),
        "bl_label": "Pick " + label,
        "bl_description": "Pick the %s from the model definition's parts" % label.lower(),
        "bl_property": "pick",
        "__annotations__": {"pick": bpy.props.EnumProperty(items=items, name=label)},
        "execute": execute,
    })


def _part_names(what):
    return lambda context: [p["name"] for p in model_parts(context)["parts"] if any(p[w] for w in what)]


TARNVALE_OT_pick_visibility = _picker('visibility', "Visibility", _part_names(("visibility", "visibleInRange")))
TARNVALE_OT_pick_mouse_rect = _picker('mouse-rect', "Mouse rect", _part_names(("mouseRect",)))
TARNVALE_OT_pick_platform = _picker('platform', "Surface", lambda context: model_parts(context)["surfaces"])


def _draw_fields(layout, context, elements):
    """A row per kind: what the part data holds, a way to change it, and to remove it."""
    first = {}
    for e in elements:
        first.setdefault(e["kind"], e)

    def row(kind, label, shown, change):
        line = layout.row(align=True)
        line.label(text=label)
        change(line, shown)
        if kind in first:
            remove = line.operator(TARNVALE_OT_part_set.bl_idname, text="", icon='X')
            remove.kind, remove.value = 'remove', kind

    def picker(operator):
        return lambda line, shown: line.operator_menu_enum(operator.bl_idname, "pick", text=shown or "None")

    def dialog(kind):
        def change(line, shown):
            button = line.operator(TARNVALE_OT_part_set.bl_idname, text=shown or "Add…")
            button.kind = kind
        return change

    point = first.get("attach-point", {})
    effect, library = point.get("effect"), point.get("libraryObject")
    row("visibility", "Visibility", first.get("visibility", {}).get("name"), picker(TARNVALE_OT_pick_visibility))
    row("mouse-rect", "Mouse rect", first.get("mouse-rect", {}).get("name"), picker(TARNVALE_OT_pick_mouse_rect))
    row("attach-point" if effect else "", "Effect",
        effect and (effect["name"] + (" (%s)" % effect["params"] if effect["params"] else "")), dialog('effect'))
    row("attach-point" if library else "", "Library object",
        library and "%s × %s" % (library["guid"], library["scale"] or "1"), dialog('library-object'))
    row("platform", "Platform", first.get("platform", {}).get("surface"), picker(TARNVALE_OT_pick_platform))
    crash = layout.row()
    toggle = crash.operator(TARNVALE_OT_part_set.bl_idname, text="No crash",
                            icon='CHECKBOX_HLT' if "no-crash" in first else 'CHECKBOX_DEHLT')
    toggle.kind, toggle.value = ('remove', 'no-crash') if "no-crash" in first else ('no-crash', '')
    for e in elements:
        if e.get("xml"):
            layout.label(text="Kept as written: " + e["xml"][:60], icon='INFO')


class TARNVALE_PT_object(bpy.types.Panel):
    bl_label = "Flight simulator"
    bl_space_type = 'PROPERTIES'
    bl_region_type = 'WINDOW'
    bl_context = "object"

    @classmethod
    def poll(cls, context):
        return context.object is not None

    def draw(self, context):
        layout = self.layout
        obj = context.object
        field = prefs(context).attach_id
        if isinstance(obj.get(field), str):
            try:
                elements, problem = read_part_data(context, obj)
            except TarnvaleError as error:
                elements, problem = [], str(error)
            if not problem:
                _draw_fields(layout.box(), context, elements)
            text = layout.box()
            text.prop(obj, '["%s"]' % field, text="Text")
            text.label(text=problem[0].upper() + problem[1:] if problem else "Part data the compiler reads",
                       icon='ERROR' if problem else 'CHECKMARK')
        else:
            layout.operator(TARNVALE_OT_part_data_add.bl_idname, text="Add Part Data").field = 'PART'
        if "visible" in obj:
            layout.prop(obj, "tarnvale_visible")
        else:
            layout.operator(TARNVALE_OT_part_data_add.bl_idname, text="Add Visibility Flag").field = 'VISIBLE'


classes = [TARNVALE_OT_part_data_add, TARNVALE_OT_part_set, TARNVALE_OT_pick_visibility,
           TARNVALE_OT_pick_mouse_rect, TARNVALE_OT_pick_platform, TARNVALE_PT_object]


def register_properties():
    # A check box over the custom property that the glTF exporter writes as extras.
    bpy.types.Object.tarnvale_visible = bpy.props.BoolProperty(
        name="Visible in the simulator", get=_visible_get, set=_visible_set,
        description="Off: where the object is a level of detail, the export leaves it out")


def unregister_properties():
    del bpy.types.Object.tarnvale_visible
