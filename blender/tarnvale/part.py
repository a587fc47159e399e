# Properties > Object > Flight simulator: the object's part data (a text of XML
# that the X file carries) and its visibility in the simulator.

import xml.dom.minidom
from xml.parsers.expat import ExpatError

import bpy

from .preferences import prefs


def xml_problem(text):
    """Why the text is no well-formed XML, or None."""
    try:
        xml.dom.minidom.parseString(text)
        return None
    except ExpatError as error:
        return str(error)


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
            context.object[prefs(context).attach_id] = "<part></part>"
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
            layout.label(text=problem and "Not well-formed XML: " + problem or "Well-formed XML",
                         icon='ERROR' if problem else 'CHECKMARK')
        else:
            layout.operator(TARNVALE_OT_part_data_add.bl_idname, text="Add Part Data").field = 'PART'
        if "visible" in obj:
            layout.prop(obj, '["visible"]', text="Visible in the simulator")
        else:
            layout.operator(TARNVALE_OT_part_data_add.bl_idname, text="Add Visibility Flag").field = 'VISIBLE'


classes = [TARNVALE_OT_part_data_add, TARNVALE_PT_object]
