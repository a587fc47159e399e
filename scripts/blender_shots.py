# Pictures of the add-on in the real Blender (run by scripts/screenshots-blender.sh):
# the material panel on a material with a simulator text, and the export options
# with the findings of a check (part data under the wrong root).
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
    from tarnvale.preferences import prefs as tarnvale_prefs
    prefs = tarnvale_prefs(bpy.context)
    prefs.command = os.path.join(ROOT, "build", "bin", "tarnvale")
    prefs.plugin_dir, prefs.settings = os.path.join(ROOT, "data"), os.devnull


def properties():
    window = bpy.context.window_manager.windows[0]
    return window, next(area for area in window.screen.areas if area.type == 'PROPERTIES')


def show_material_panel():
    # Only the material slots and the add-on's panel, so that it fits the picture.
    for name in ("EEVEE_MATERIAL_PT_surface", "EEVEE_MATERIAL_PT_settings", "MATERIAL_PT_preview",
                 "EEVEE_MATERIAL_PT_volume", "MATERIAL_PT_viewport", "MATERIAL_PT_lineart", "MATERIAL_PT_custom_props"):
        if hasattr(bpy.types, name):
            bpy.utils.unregister_class(getattr(bpy.types, name))
    window, area = properties()
    area.spaces[0].context = 'MATERIAL'
    area.tag_redraw()


def take_material_panel_and_open_export():
    window, area = properties()
    region = next(r for r in area.regions if r.type == 'WINDOW')
    with bpy.context.temp_override(window=window, screen=window.screen, area=area, region=region):
        bpy.ops.screen.screenshot_area(filepath=os.path.join(OUT, "blender-material-panel.png"))
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
for step, seconds in ((show_material_panel, 1), (take_material_panel_and_open_export, 2), (take_export_options, 4)):
    bpy.app.timers.register(step, first_interval=seconds)
