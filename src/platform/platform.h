// The small layers that stand for the Windows services the exporter was written
// against. Each is an interface with a real implementation; tests use the
// recording doubles of platform/doubles.h. One header per concern:
#pragma once

#include "host/host.h"
#include "platform/boxes.h"    // message boxes and the progress of an export
#include "platform/files.h"    // paths, files, the output sink and the line reader
#include "platform/names.h"    // node names as the files write them; the LOD_ word
#include "platform/process.h"  // processes: start a command line, wait for its end
#include "platform/registry.h" // the registry, read only, or a .reg file for it
#include "platform/settings.h" // the per-user settings store
#include "platform/system.h"   // GUIDs and the dates of the file's header
#include "platform/text.h"     // the code page of generated files, characters of UTF-8
#include "platform/win32.h"    // the Windows services themselves (on Windows only)
#include "platform/workers.h"  // helper threads and the jobs handed to them
