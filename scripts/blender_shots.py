# Pictures of the add-on in the real Blender (run by scripts/screenshots-blender.sh):
# the object panel on a wing tip light's part data, the material panel on a
# material with a simulator text, and the export options with the findings of a
# check (part data under the wrong root).
import os

import bpy

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), os.pardir)
OUT = os.path.join(ROOT, "docs", "images")


def build():
    bpy.ops.mesh.primitive_cube_add()
    aileron = bpy.context.object
    aileron.name = "l_aileron.001"
    paint = bpy.data.materials.new("Paint")
    paint["FS10"] = "SrcBlend=SrcAlpha;DstBlend=InvSrcAlpha;AlphaTestFunction=Greater;EmissiveData=Blend;DoubleSided=1"
    aileron.data.materials.append(paint)
    aileron["FS10att"] = '<Visibility name="custom_vis"/>'
    bpy.ops.mesh.primitive_cube_add(size=0.1, location=(4.5, 0, 0))
    light = bpy.context.object
    light.name = "navlight_red"
    light["FS10att"] = ('<?xml version="1.0" encoding="ISO-8859-1"?>\n<FSMakeMdlData version="9.0">\n'
                        '  <Visibility name="gear_door_visible"> </Visibility>\n'
                        '  <Attachpoint name="attachpt_navred">\n    <AttachedObject>\n'
                        '      <Effect effectName="fx_navred" effectParams="DAY=1, NIGHT=1"/>\n'
                        '    </AttachedObject>\n  </Attachpoint>\n</FSMakeMdlData>')
    from tarnvale.preferences import prefs as tarnvale_prefs
    prefs = tarnvale_prefs(bpy.context)
    prefs.command = os.path.join(ROOT, "build", "bin", "tarnvale")
    prefs.plugin_dir, prefs.settings = os.path.join(ROOT, "data"), os.devnull


def properties():
    window = bpy.context.window_manager.windows[0]
    return window, next(area for area in window.screen.areas if area.type == 'PROPERTIES')


def show_alone(context, others):
    """The Properties editor on `context`, its other panels gone so that the
    add-on's fits the picture."""
    for name in others:
        if hasattr(bpy.types, name):
            bpy.utils.unregister_class(getattr(bpy.types, name))
    window, area = properties()
    area.spaces[0].context = context
    area.tag_redraw()


def take_area(name):
    window, area = properties()
    region = next(r for r in area.regions if r.type == 'WINDOW')
    with bpy.context.temp_override(window=window, screen=window.screen, area=area, region=region):
        bpy.ops.screen.screenshot_area(filepath=os.path.join(OUT, name))


def show_object_panel():
    show_alone('OBJECT', ("OBJECT_PT_transform", "OBJECT_PT_delta_transform", "OBJECT_PT_relations",
                          "OBJECT_PT_collections", "OBJECT_PT_instancing", "OBJECT_PT_motion_paths",
                          "OBJECT_PT_visibility", "OBJECT_PT_display", "OBJECT_PT_lineart", "OBJECT_PT_custom_props"))


def take_object_panel():
    take_area("blender-object-panel.png")
    bpy.context.view_layer.objects.active = bpy.data.objects["l_aileron.001"]
    show_alone('MATERIAL', ("EEVEE_MATERIAL_PT_surface", "EEVEE_MATERIAL_PT_settings", "MATERIAL_PT_preview",
                            "EEVEE_MATERIAL_PT_volume", "MATERIAL_PT_viewport", "MATERIAL_PT_lineart",
                            "MATERIAL_PT_custom_props"))


def take_material_panel_and_open_export():
    take_area("blender-material-panel.png")
    window = bpy.context.window_manager.windows[0]
    with bpy.context.temp_override(window=window, screen=window.screen, area=window.screen.areas[0]):
        bpy.ops.export_scene.tarnvale_check()
        bpy.ops.export_scene.tarnvale_x('INVOKE_DEFAULT')


def take_export_options():
    windows = bpy.context.window_manager.windows
    if len(windows) < 2 or not getattr(take_export_options, "drawn", False):
        take_export_options.drawn = len(windows) >= 2  # once it is there, a second to draw itself
        return 1.0
    window = windows[-1]
    with bpy.context.temp_override(window=window, screen=window.screen):
        bpy.ops.screen.screenshot(filepath=os.path.join(OUT, "blender-export-options.png"))
    bpy.ops.wm.quit_blender()


build()
for step, seconds in ((show_object_panel, 1), (take_object_panel, 2), (take_material_panel_and_open_export, 3),
                      (take_export_options, 5)):
    bpy.app.timers.register(step, first_interval=seconds)
