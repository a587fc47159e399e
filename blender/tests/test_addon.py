# The add-on in a factory-fresh Blender (see run.sh): registration, an export of a
# scene built here, the failure report, the material panel's operators.

import json
import math
import os
import re
import subprocess
import sys
import tempfile
import time
import types
import unittest

import addon_utils
import bpy

BIN, PLUGIN, WORK = (os.environ[k] for k in ("TARNVALE_TEST_BIN", "TARNVALE_TEST_PLUGIN", "TARNVALE_TEST_WORK"))


def preferences():
    from tarnvale.preferences import prefs
    return prefs(bpy.context)


PART_DATA = '<FSMakeMdlData version="9.0"><Visibility name="custom_fuselage"/></FSMakeMdlData>'


class Layout:
    """Stands in for a panel's layout: records the labels and operators drawn."""

    def __init__(self, seen):
        self.seen = seen

    def label(self, text="", icon='NONE'):
        self.seen.append((icon, text))

    def operator(self, idname, **_):
        button = types.SimpleNamespace()
        self.seen.append((idname, button))
        return button

    def operator_menu_enum(self, idname, _, text=""):
        self.seen.append((idname, text))

    def box(self):
        return self

    def row(self, **_):
        return self

    column = grid_flow = row

    def prop(self, *_, **__):
        pass

    prop_search = prop


def build_scene():
    """A wing and its mirrored copy, an aileron hinged on two keys, a mast skinned
    to three bones, a material with a simulator text, part data; names with .001."""
    bpy.ops.wm.read_homefile(use_empty=True)
    bpy.ops.mesh.primitive_cube_add(size=1, location=(2, 0, 0))
    wing = bpy.context.object
    wing.name, wing["FS10att"] = "Wing", PART_DATA
    paint = bpy.data.materials.new("Paint.001")
    paint["FS10"] = "SrcBlend=SrcAlpha;DstBlend=InvSrcAlpha;AlphaTestFunction=Greater;EmissiveData=Blend;DoubleSided=1"
    wing.data.materials.append(paint)
    copy = wing.copy()
    bpy.context.collection.objects.link(copy)
    copy.location, copy.scale = (-2, 0, 0), (-1, 1, 1)
    bpy.ops.mesh.primitive_cube_add(size=0.3, location=(3, 0, 0))
    aileron = bpy.context.object
    aileron.name = "l_aileron"
    for frame, degrees in ((1, 0), (30, 60)):
        aileron.rotation_euler = (math.radians(degrees), 0, 0)
        aileron.keyframe_insert("rotation_euler", frame=frame)
    bpy.ops.object.armature_add(location=(0, 0, 1))
    armature = bpy.context.object
    armature.name = "antenna"
    bpy.ops.object.mode_set(mode='EDIT')
    parent = None
    for i, bone in enumerate(["bone", "bone.001", "bone.002"]):
        edit = armature.data.edit_bones[0] if i == 0 else armature.data.edit_bones.new(bone)
        edit.name, edit.head, edit.tail, edit.parent = bone, (0, 0, i), (0, 0, i + 1), parent
        parent = edit
    bpy.ops.object.mode_set(mode='OBJECT')
    bpy.ops.mesh.primitive_cylinder_add(radius=0.1, depth=3, location=(0, 0, 2.5), vertices=8)
    mast = bpy.context.object
    mast.name = "mast"
    bpy.ops.object.mode_set(mode='EDIT')
    bpy.ops.mesh.subdivide(number_cuts=6)
    bpy.ops.object.mode_set(mode='OBJECT')
    mast.select_set(True)
    armature.select_set(True)
    bpy.context.view_layer.objects.active = armature
    bpy.ops.object.parent_set(type='ARMATURE_AUTO')


class Addon(unittest.TestCase):
    def setUp(self):
        prefs = preferences()
        prefs.command, prefs.plugin_dir, prefs.settings = BIN, PLUGIN, os.path.join(WORK, "none.ini")

    def export(self, path, **options):
        """Exports through the operator; gives what the operator reported."""
        capture = os.path.join(WORK, "reports.txt")
        saved = os.dup(1)
        with open(capture, "w") as out:
            os.dup2(out.fileno(), 1)
            try:
                bpy.ops.export_scene.tarnvale_x(filepath=path, **options)
            finally:
                sys.stdout.flush()
                os.dup2(saved, 1)
                os.close(saved)
        with open(capture) as reports:
            return reports.read()

    def test_registers_and_unregisters_cleanly(self):
        addon_utils.disable("tarnvale")
        self.assertFalse(hasattr(bpy.types, "TARNVALE_PT_material"))
        self.assertNotIn("tarnvale_x", dir(bpy.ops.export_scene))
        addon_utils.enable("tarnvale")
        self.assertTrue(hasattr(bpy.types, "TARNVALE_PT_object"))
        self.setUp()

    def test_a_built_scene_exports_whole(self):
        build_scene()
        out = os.path.join(WORK, "plane.x")
        os.environ["FAKE_TOOL_LOG"] = os.path.join(WORK, "tool.txt")
        reports = self.export(out)
        self.assertRegex(reports, r"Info: FSX Export: Export to .*plane\.x Completed\.")
        with open(os.environ.pop("FAKE_TOOL_LOG")) as tool:
            self.assertIn("/xanim", tool.read())  # the SDK's stand-in ran on the files
        with open(out, encoding="cp1252") as f:
            x = f.read()
        with open(out + "anim") as f:
            xanim = f.read()
        self.assertTrue(os.path.isfile(os.path.join(WORK, "plane.config")))
        for frame in ("frm-wing", "frm-wing_001", "frm-l_aileron", "frm-mast", "frm-bone_001"):
            self.assertIn("Frame %s {" % frame, x)
        self.assertIn('"SrcAlpha"; "InvSrcAlpha"; // blend', x)
        self.assertIn("DoubleSidedMaterial {\n 1 ;", x)
        self.assertIn("PartData {\n %d ;\n %s ," % (len(PART_DATA) + 1, " , ".join(map(str, PART_DATA.encode()[:9]))), x)
        self.assertRegex(xanim, r'<AnimStream id="0" name="Rotation" partName="l_aileron"')
        for bone in ("bone", "bone_001", "bone_002"):
            self.assertTrue(re.search(r'\n +"%s", +[\d.]+;' % bone, x), "no weight of " + bone)

    def test_the_dialog_lists_the_checks_findings_and_an_error_stops_the_export(self):
        from tarnvale.export import DIALOG_PANELS, TARNVALE_OT_export
        build_scene()
        bpy.data.objects["Wing"]["FS10att"] = "<part>abc</part>"
        bpy.data.materials["Paint.001"]["FS10"] = "SrcBlend=SrcAlpha;DstBlend=InvSrcAlpha"
        dialog = types.SimpleNamespace(what='SELECTION', action='', textures='//dds', levels='ALL')

        def drawn():
            """The dialog and its sub-panels, as the file browser draws them."""
            seen = []
            TARNVALE_OT_export.draw(types.SimpleNamespace(layout=Layout(seen), **vars(dialog)), bpy.context)
            context = types.SimpleNamespace(space_data=types.SimpleNamespace(active_operator=dialog),
                                            window_manager=bpy.context.window_manager, scene=bpy.context.scene,
                                            view_layer=bpy.context.view_layer)
            for panel in DIALOG_PANELS:
                panel.draw(types.SimpleNamespace(layout=Layout(seen)), context)
            return seen

        button = dict(drawn())["export_scene.tarnvale_check"]
        self.assertEqual((button.what, button.textures), ('SELECTION', True))
        bpy.ops.export_scene.tarnvale_check()
        listed = [line for line in drawn() if line[0] in ('NONE', 'CANCEL', 'ERROR', 'INFO')]
        # What matters first; the notes counted, listed in the Info editor.
        self.assertEqual(listed[:1] + [line for line in listed[1:] if line[0] != 'NONE'], [
            ('NONE', "2 errors, 0 warnings, 4 notes"),
            ('CANCEL', "Wing: partdata-root"),
            ('CANCEL', "material Paint.001: material-empty-name"),
            ('INFO', "4 notes in the Info editor")])
        lines = [text for icon, text in listed[1:] if icon == 'NONE']
        self.assertLessEqual(max(map(len, lines)), 34)  # cut to the panel: labels do not wrap
        wrapped = " ".join(lines)
        self.assertIn("the compiler reads only FSMakeMdlData: put the text inside", wrapped)
        # Checked first, the export stops on those errors and keeps them listed.
        bpy.context.window_manager.tarnvale_findings.clear()
        path = os.path.join(WORK, "stopped.x")
        with self.assertRaises(RuntimeError) as stopped:
            bpy.ops.export_scene.tarnvale_x(filepath=path)
        self.assertIn("the check found 2 errors", str(stopped.exception))
        self.assertFalse(os.path.exists(path))
        self.assertEqual(len(bpy.context.window_manager.tarnvale_findings), 6)

    def test_a_failure_is_an_error_report_with_its_text(self):
        build_scene()
        empty = tempfile.mkdtemp(dir=WORK)
        preferences().plugin_dir = empty  # no template in it
        with self.assertRaises(RuntimeError) as failure:
            bpy.ops.export_scene.tarnvale_x(filepath=os.path.join(WORK, "failed.x"), check_first=False)
        self.assertIn("FS10 Export: Creating X file", str(failure.exception))

    def test_the_part_data_button_gives_what_the_check_takes(self):
        from tarnvale import part
        build_scene()
        mast = bpy.data.objects["mast"]
        bpy.context.view_layer.objects.active = mast
        mast["FS10att"] = "<part/>"
        self.assertIn("its root is part", part.read_part_data(bpy.context, mast)[1])
        bpy.ops.object.tarnvale_field_add(field='PART')
        bpy.ops.object.tarnvale_field_add(field='VISIBLE')
        self.assertEqual((part.read_part_data(bpy.context, mast), mast.tarnvale_visible), (([], None), True))
        mast.tarnvale_visible = False  # a check box over the custom property
        self.assertEqual(mast["visible"], 0)
        bpy.ops.export_scene.tarnvale_check()
        kinds = [finding.kind for finding in bpy.context.window_manager.tarnvale_findings]
        self.assertFalse({"partdata-root", "partdata-xml"} & set(kinds), kinds)

    def test_part_data_picked_and_added_in_the_panel_reaches_the_x_file(self):
        from tarnvale.part import TARNVALE_PT_object
        build_scene()
        mast = bpy.data.objects["mast"]
        bpy.context.view_layer.objects.active = mast
        bpy.ops.object.tarnvale_pick_visibility(pick='gear_door_visible')  # from the model definition's list
        bpy.ops.object.tarnvale_part_set(kind='effect', value='fx_navred', more='DAY=1, NIGHT=1')
        with self.assertRaises(RuntimeError) as refused:
            bpy.ops.object.tarnvale_part_set(kind='effect', value='fx_navred.fx')
        self.assertIn("has a file extension", str(refused.exception))
        seen = []
        TARNVALE_PT_object.draw(types.SimpleNamespace(layout=Layout(seen)), bpy.context)
        self.assertIn(("object.tarnvale_pick_visibility", "gear_door_visible"), seen)
        self.assertIn(('CHECKMARK', "Part data the compiler reads"), seen)
        buttons = [b for idname, b in seen if idname == "object.tarnvale_part_set" and hasattr(b, "kind")]
        self.assertEqual([(b.kind, b.value) for b in buttons if b.kind == 'remove'],
                         [('remove', 'visibility'), ('remove', 'attach-point')])
        out = os.path.join(WORK, "parts.x")
        self.export(out)
        with open(out, encoding="cp1252") as f:
            x = f.read()
        block = x[x.index("Frame frm-mast {"):]
        codes = [int(n) for n in re.findall(r"\d+", block[block.index("PartData {"):block.index("}  // End Partdata")])]
        self.assertEqual(bytes(codes[1:-1]).decode("cp1252"), mast["FS10att"])
        self.assertIn('<Visibility name="gear_door_visible"> </Visibility>', mast["FS10att"])
        self.assertIn('<Effect effectName="fx_navred" effectParams="DAY=1, NIGHT=1"/>', mast["FS10att"])

    def test_check_and_the_export_after_it_write_the_scene_once_while_it_is_unchanged(self):
        from tarnvale import export
        build_scene()
        written = []
        write = export.write_scene
        export.write_scene = lambda *args: written.append(1) or write(*args)
        try:
            bpy.ops.export_scene.tarnvale_check()
            bpy.ops.export_scene.tarnvale_check()
            self.export(os.path.join(WORK, "once.x"), check_first=False)
            self.assertEqual(len(written), 1)
            # What the depsgraph tells, and what it does not: part data, a material's text.
            for change in (lambda: setattr(bpy.data.objects["Wing"], "location", (5, 0, 0)),
                           lambda: bpy.data.objects["Wing"].__setitem__("FS10att", PART_DATA + " "),
                           lambda: bpy.data.materials["Paint.001"].__setitem__("FS10", "DoubleSided=1")):
                change()
                bpy.ops.export_scene.tarnvale_check()
            self.assertEqual(len(written), 4)
        finally:
            export.write_scene = write

    def test_a_new_file_names_the_model_after_itself(self):
        build_scene()
        self.export(os.path.join(WORK, "aircraft.x"), check_first=False)
        with open(os.path.join(WORK, "aircraft.config")) as sidecar:
            self.assertIn("<FriendlyName>aircraft</FriendlyName>", sidecar.read())

    def test_the_picked_action_moves_only_its_own_object(self):
        bpy.ops.wm.read_homefile(use_empty=True)
        for name, path, axis in (("l_aileron", "rotation_euler", 2), ("r_aileron", "location", 0),
                                 ("rudder", "rotation_euler", 0)):
            bpy.ops.mesh.primitive_cube_add()
            obj = bpy.context.active_object
            obj.name = name
            for frame, value in ((1, 0.0), (10, 0.4), (20, 0.7)):
                getattr(obj, path)[axis] = value
                obj.keyframe_insert(path, index=axis, frame=frame)
            obj.animation_data.action.name = name + "_move"
        self.export(os.path.join(WORK, "picked.x"), check_first=False, action="r_aileron_move")
        with open(os.path.join(WORK, "picked.xanim")) as f:
            streams = sorted(re.findall(r'name="(Rotation|Position)" partName="(\w+)"', f.read()))
        self.assertEqual(streams, [("Position", "r_aileron"), ("Rotation", "l_aileron"), ("Rotation", "rudder")])

    def test_settings_kept_in_the_blend_when_asked(self):
        from tarnvale import export
        build_scene()
        blend = os.path.join(WORK, "kept.blend")
        self.export(os.path.join(WORK, "kept.x"), run_tool=False, check_first=False, will_save_settings=True)
        bpy.ops.wm.save_as_mainfile(filepath=blend)
        bpy.ops.wm.open_mainfile(filepath=blend)
        kept = export.remembered(bpy.context)
        self.assertEqual((kept["run_tool"], kept["check_first"], kept["what"]), (False, False, 'SCENE'))
        self.export(os.path.join(WORK, "kept.x"), check_first=False)  # not asked: nothing kept
        self.assertEqual(export.remembered(bpy.context), {})

    def test_the_closing_box_says_each_line_once_and_lists_the_textures_written(self):
        from tarnvale.export import closing_lines
        text = "Warning - A.PNG is not a DDS file and will need converting\nW\nW\nExport to m.x Completed."
        self.assertEqual(closing_lines(text, []), text.splitlines()[:2] + ["Export to m.x Completed."])
        self.assertEqual(closing_lines(text, ["A.DDS 256x256 DXT1 9 mips"]),
                         ["W", "Wrote A.DDS 256x256 DXT1 9 mips", "Export to m.x Completed."])

    def root_frames(self, path, **options):
        """Exports through the operator; gives the X file's root frames."""
        self.export(path, check_first=False, **options)
        roots, depth = [], 0
        with open(path, encoding="cp1252") as f:
            for line in f:
                if depth == 0 and line.startswith("Frame "):
                    roots.append(line.split()[1])
                depth += line.count("{") - line.count("}")
        return roots

    def test_level_collections_are_levels_and_a_hidden_one_is_left_out(self):
        bpy.ops.wm.read_homefile(use_empty=True)
        for name, hidden in (("plane_LOD_100", False), ("plane_LOD_50", True), ("plane_LOD_25", False)):
            level = bpy.data.collections.new(name)
            bpy.context.scene.collection.children.link(level)
            bpy.ops.mesh.primitive_uv_sphere_add()
            part = bpy.context.active_object
            part.name = "l_aileron"  # l_aileron.001 and .002 in the levels after
            for collection in part.users_collection:
                collection.objects.unlink(part)
            level.objects.link(part)
            level.hide_viewport = hidden
        self.assertEqual(self.root_frames(os.path.join(WORK, "levels.x")), ["frm-plane_lod_100", "frm-plane_lod_25"])
        self.assertEqual(self.root_frames(os.path.join(WORK, "flat.x"), levels='NONE'),
                         ["frm-scene"])

    def test_generated_levels_from_the_dialog(self):
        bpy.ops.wm.read_homefile(use_empty=True)
        bpy.ops.mesh.primitive_uv_sphere_add(segments=32, ring_count=16)
        self.assertEqual(self.root_frames(os.path.join(WORK, "pod.x"), generate="100,50,25"),
                         ["frm-scene_lod_100", "frm-scene_lod_50", "frm-scene_lod_25"])
        # The dialog's table: each level's triangles, about half the one before's.
        levels = bpy.context.window_manager.tarnvale_levels
        self.assertEqual([level.level for level in levels], ["Scene_LOD_100", "Scene_LOD_50", "Scene_LOD_25"])
        self.assertEqual(levels[0].triangles, 960)
        self.assertAlmostEqual(levels[1].triangles / levels[0].triangles, 0.5, delta=0.1)

    def test_the_same_scene_exported_twice_is_the_same_file(self):
        build_scene()
        path = os.path.join(WORK, "twice.x")
        # The X file names the model as the name kept beside it: the first export's
        # is the scene's, as no name is kept yet.
        texts = []
        for _ in range(3):
            self.export(path, run_tool=False)
            with open(path, encoding="cp1252") as f:
                texts.append(re.sub(r"// Exported .*", "", f.read()))
        self.assertEqual(texts[1], texts[2])

    def test_a_preset_through_the_panel_is_the_commands(self):
        build_scene()
        paint = bpy.data.materials["Paint.001"]
        del paint["FS10"]
        with bpy.context.temp_override(material=paint):
            bpy.ops.material.tarnvale_preset(preset=2)
        scene = os.path.join(WORK, "paint.glb")
        bpy.ops.export_scene.gltf(filepath=scene, export_format='GLB', export_extras=True)
        del paint["FS10"]  # the command works on the file's material, as it was
        subprocess.run([BIN, "material", "apply", scene, "--material", "Paint.001", "--preset", "Gloss",
                        "--settings", preferences().settings], check=True, capture_output=True)
        with bpy.context.temp_override(material=paint):
            bpy.ops.material.tarnvale_preset(preset=2)
        with open(scene, "rb") as f:
            glb = f.read()
        document = json.loads(glb[20:20 + int.from_bytes(glb[12:16], "little")])
        material = next(m for m in document["materials"] if m["name"] == "Paint.001")
        self.assertEqual(paint["FS10"], material["extras"]["FS10"])

    def test_edit_takes_the_editors_text_and_colour_and_cancel_leaves_them(self):
        build_scene()
        paint = bpy.data.materials["Paint.001"]
        before = paint["FS10"]
        # The editor as a stand-in: OK with a text and a picked colour, or Cancel.
        stand_in = os.path.join(WORK, "editor.sh")
        with open(stand_in, "w") as f:
            f.write('#!/bin/sh\nif [ -n "$CANCEL" ]; then exit 3; fi\n'
                    'echo \'{"text": "SrcBlend=One;DstBlend=Zero", "specular": [0.5, 0.25, 1.0]}\'\n')
        os.chmod(stand_in, 0o755)
        preferences().command = stand_in
        with bpy.context.temp_override(material=paint):
            os.environ["CANCEL"] = "1"
            bpy.ops.material.tarnvale_edit()
            self.assertEqual(paint["FS10"], before)
            del os.environ["CANCEL"]
            bpy.ops.material.tarnvale_edit()
        self.assertEqual((paint["FS10"], list(paint["tarnvale_specular"])), ("SrcBlend=One;DstBlend=Zero", [0.5, 0.25, 1.0]))
        # From the panel it runs beside Blender, which asks it now and then whether it is done.
        from tarnvale.material import EditSession
        with open(stand_in, "w") as f:
            f.write('#!/bin/sh\ncat > /dev/null; sleep 0.3\necho \'{"text": "SrcBlend=Zero", "specular": null}\'\n')
        session, asked = EditSession(bpy.context, paint), 0
        while session.done(bpy.context) is None:
            asked += 1
            time.sleep(0.05)
        self.assertGreater(asked, 1)
        self.assertEqual(paint["FS10"], "SrcBlend=Zero")


def socket(value=None, link=None):
    return types.SimpleNamespace(default_value=value, is_linked=link is not None,
                                 links=[types.SimpleNamespace(from_node=link)] if link else [])


class Compat(unittest.TestCase):
    """The branches for Blender 4.x, which Debian cannot run, played by stand-ins."""

    def test_emission_alpha_actions_and_the_gltf_exporters_options(self):
        from tarnvale import compat
        white, orange = (1, 1, 1, 1), (0.8, 0.4, 0.2, 1)
        for inputs, expected in (
                ({'Emission': socket((0.2, 0.4, 0.6, 1)), 'Emission Strength': socket(1.0)}, [0.2, 0.4, 0.6]),  # 3.x
                ({'Emission Color': socket(white), 'Emission Strength': socket(0.0)}, [0, 0, 0]),  # 4.x default
                ({'Emission Color': socket(orange), 'Emission Strength': socket(2.0)}, [1.0, 0.8, 0.4]),
                ({}, [0, 0, 0])):
            self.assertEqual([round(c, 6) for c in compat.emissive_factor(inputs)], expected, inputs)
        clip = types.SimpleNamespace(blend_method='CLIP', alpha_threshold=0.25)
        greater = types.SimpleNamespace(type='MATH', operation='GREATER_THAN', inputs=[socket(), socket(0.3)])
        image = types.SimpleNamespace(type='TEX_IMAGE')
        for material, alpha, version, expected in (
                (clip, socket(1.0), (4, 1, 0), ("MASK", 0.25)),
                (clip, socket(1.0), (4, 2, 0), ("OPAQUE", None)),  # the blend method no longer counts
                (clip, socket(0.5), (4, 2, 0), ("BLEND", None)),
                (clip, socket(1.0, greater), (4, 5, 0), ("MASK", 0.3)),
                (clip, socket(1.0, image), (4, 4, 0), ("BLEND", None))):
            self.assertEqual(compat.alpha_mode(material, {'Alpha': alpha}, version), expected)
        curve = types.SimpleNamespace(data_path="rotation_euler")
        layered = types.SimpleNamespace(layers=[types.SimpleNamespace(strips=[types.SimpleNamespace(
            channelbags=[types.SimpleNamespace(fcurves=[curve]), types.SimpleNamespace(fcurves=[curve])])])],
            fcurves=[curve])
        self.assertEqual(len(compat.action_fcurves(layered)), 2)  # every slot's, not the first's alone
        slots = [types.SimpleNamespace(identifier="OBwing", target_id_type='OBJECT'),
                 types.SimpleNamespace(identifier="OBaileron", target_id_type='OBJECT')]
        data = types.SimpleNamespace(action=None, action_slot=None)
        compat.assign_action(data, types.SimpleNamespace(slots=slots), types.SimpleNamespace(name="aileron"))
        self.assertIs(data.action_slot, slots[1])
        self.assertEqual(compat.gltf_animation_options({"export_animation_mode"}, True),
                         {"export_animation_mode": 'ACTIVE_ACTIONS'})
        self.assertEqual(compat.gltf_animation_options({"export_nla_strips"}, False), {"export_nla_strips": True})


if __name__ == "__main__":
    result = unittest.main(argv=[sys.argv[0]], exit=False, verbosity=2).result
    if result.wasSuccessful():
        open(os.path.join(WORK, "passed"), "w").close()
