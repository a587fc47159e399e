# Properties > Object > Flight simulator: the object's part data (a text of XML
# that the X file carries) and its visibility in the simulator.

import xml.dom.minidom
from xml.parsers.expat import ExpatError

import bpy

from .preferences import prefs


EMPTY_PART_DATA = '<FSMakeMdlData version="9.0"></FSMakeMdlData>'


def xml_problem(text):
    """Why the compiler cannot read the text as part data, or None: it must be
    well-formed XML whose root is FSMakeMdlData (the check's partdata rules)."""
    try:
        root = xml.dom.minidom.parseString(text).documentElement.tagName
    except ExpatError as error:
        return "not well-formed XML: " + str(error)
    return None if root == "FSMakeMdlData" else "its root is %s, and the compiler reads only FSMakeMdlData" % root


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
            layout.prop(obj, '["%s"]' % field, text="Part data")
            problem = xml_problem(obj[field])
            layout.label(text=problem[0].upper() + problem[1:] if problem else "Part data the compiler reads",
                         icon='ERROR' if problem else 'CHECKMARK')
        else:
            layout.operator(TARNVALE_OT_part_data_add.bl_idname, text="Add Part Data").field = 'PART'
        if "visible" in obj:
            layout.prop(obj, "tarnvale_visible")
        else:
            layout.operator(TARNVALE_OT_part_data_add.bl_idname, text="Add Visibility Flag").field = 'VISIBLE'


classes = [TARNVALE_OT_part_data_add, TARNVALE_PT_object]


def register_properties():
    # A check box over the custom property that the glTF exporter writes as extras.
    bpy.types.Object.tarnvale_visible = bpy.props.BoolProperty(
        name="Visible in the simulator", get=_visible_get, set=_visible_set,
        description="Off: where the object is a level of detail, the export leaves it out")


def unregister_properties():
    del bpy.types.Object.tarnvale_visible
