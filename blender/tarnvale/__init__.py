# Tarnvale in Blender: File > Export > Flight Sim X (.MDL), and the simulator's
# material and part data in the Properties editor. Every rule stays in the
# tarnvale command; the add-on gathers, calls it, and reports.

bl_info = {
    "name": "Tarnvale: Flight Sim X (.MDL)",
    "author": "Tarnvale",
    "version": (0, 1, 0),
    "blender": (3, 4, 0),
    "location": "File > Export > Flight Sim X (.MDL); Properties > Material, Object > Flight simulator",
    "description": "Exports the source files of a flight-simulator model and edits its materials",
    "category": "Import-Export",
}

import bpy

from . import export, material, part, preferences

classes = preferences.classes + export.classes + material.classes + part.classes


def register():
    for cls in classes:
        bpy.utils.register_class(cls)
    export.register_properties()
    part.register_properties()
    bpy.types.TOPBAR_MT_file_export.append(export.menu_entry)


def unregister():
    bpy.types.TOPBAR_MT_file_export.remove(export.menu_entry)
    export.unregister_properties()
    part.unregister_properties()
    for cls in reversed(classes):
        bpy.utils.unregister_class(cls)
