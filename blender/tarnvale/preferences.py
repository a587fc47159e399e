# The add-on's preferences, and the tarnvale command they lead to.

import json
import os
import shutil
import subprocess

import bpy
from bpy.props import StringProperty


class TarnvaleError(Exception):
    """What the user must be told, in one sentence."""


class TARNVALE_AddonPreferences(bpy.types.AddonPreferences):
    bl_idname = __package__

    command: StringProperty(
        name="tarnvale command",
        description="The tarnvale program; empty: the one installed with the add-on, else tarnvale on the PATH",
        subtype='FILE_PATH',
    )
    plugin_dir: StringProperty(
        name="Plug-in folder",
        description="Folder of Tarnvale.X, modeldef.xml, the SDK's tool and the material library; empty: the installed one",
        subtype='DIR_PATH',
    )
    settings: StringProperty(name="Settings file", description="Empty: tarnvale's own", subtype='FILE_PATH')
    registry: StringProperty(name="Registry file", description="A .reg file that names the SDK", subtype='FILE_PATH')
    field_id: StringProperty(
        name="Material field", default="FS10",
        description="The custom property that holds a material's simulator text (the FieldId setting)",
    )
    attach_id: StringProperty(
        name="Part data field", default="FS10att",
        description="The custom property that holds an object's part data (the AttachId setting)",
    )

    def draw(self, context):
        layout = self.layout
        for name in ("command", "plugin_dir", "settings", "registry", "field_id", "attach_id"):
            layout.prop(self, name)


def prefs(context):
    addon = context.preferences.addons.get(__package__)
    if addon is None:  # enabled for this run only (blender --addons): the preferences' defaults
        addon = context.preferences.addons.new()
        addon.module = __package__
    return addon.preferences


def command_path(context):
    """The tarnvale program: the preference, the one installed beside the add-on, the PATH."""
    chosen = bpy.path.abspath(prefs(context).command)
    if chosen:
        return chosen
    # Installed, the add-on stands in share/tarnvale/blender/tarnvale, the command in bin.
    here = os.path.dirname(os.path.abspath(__file__))
    installed = os.path.join(here, os.pardir, os.pardir, os.pardir, os.pardir, "bin", "tarnvale")
    if os.path.isfile(installed):
        return os.path.normpath(installed)
    found = shutil.which("tarnvale")
    if not found:
        raise TarnvaleError("No tarnvale command found: install tarnvale, or name it in the add-on's preferences")
    return found


def common_options(context):
    """The plug-in folder, settings and registry options the preferences give."""
    p = prefs(context)
    options = []
    for flag, value in (("--plugin-dir", p.plugin_dir), ("--settings", p.settings)):
        if value:
            options += [flag, bpy.path.abspath(value).rstrip("/\\") or "/"]
    return options


def run(context, arguments, stdin=None):
    """Runs tarnvale to its end; gives (exit code, standard output, standard error)."""
    try:
        done = subprocess.run([command_path(context)] + arguments, input=stdin, capture_output=True,
                              text=True, encoding="utf-8", errors="replace")
    except OSError as error:
        raise TarnvaleError("tarnvale cannot be started: %s" % error)
    return done.returncode, done.stdout, done.stderr


def start(context, arguments, errors, stdin=None):
    """Starts tarnvale with its standard output read a line at a time, its standard
    error going to the file `errors` (a pipe could fill while no one reads it), and
    `stdin`, where given, as its whole input."""
    try:
        process = subprocess.Popen([command_path(context)] + arguments, stdout=subprocess.PIPE, stderr=errors,
                                   stdin=subprocess.DEVNULL if stdin is None else subprocess.PIPE, text=True,
                                   encoding="utf-8", errors="replace")
    except OSError as error:
        raise TarnvaleError("tarnvale cannot be started: %s" % error)
    if stdin is not None:
        # The command reads all of it before it shows anything.
        process.stdin.write(stdin)
        process.stdin.close()
    return process


def json_lines(text):
    return [json.loads(line) for line in text.splitlines() if line.startswith("{")]


classes = [TARNVALE_AddonPreferences]
