// Runs the X writers over a scene built in the test, with their fields held here.
#pragma once

#include "support.h"
#include "xfile/xfile.h"

namespace tarnvale::test {

struct XFileFixture {
    TempDir dir;
    std::shared_ptr<scene::MemoryScene> scene = scene::MemoryScene::create("Root");
    SGScenePtr sceneGraph = scene;
    std::string templateFile = dir.file("template.X");
    std::string friendlyName = "My Plane?";
    std::string guid = "0123ABCD-0A0B-4C0D-8E0F-010203040506";
    SGObjectPtr exportGroup;
    xfile::ObjectBonesCollection bones;
    int32_t materialField = scene->fields().addMaterial("FS10");
    int32_t attachField = scene->fields().addObject("FS10att");
    std::string status;
    platform::FixedClock clock;

    xfile::XFileContext context() {
        return {templateFile, exportGroup, sceneGraph, friendlyName, guid, bones, materialField, attachField,
                [this](const std::string& t) { status += t; }, clock};
    }

    // Expands `templateText` for `group` and gives the output file's bytes.
    std::string expand(const std::string& templateText, SGObjectPtr group) {
        writeFile(templateFile, templateText);
        exportGroup = std::move(group);
        auto ctx = context();
        std::string out = dir.file("out.x");
        xfile::XFileExporter(ctx).pExportFSX(out, exportGroup);
        return readFile(out);
    }

    // One frame tree written on its own, with `root` as the export group.
    std::string frame(const SGObjectPtr& node, SGObjectPtr root) {
        exportGroup = std::move(root);
        auto ctx = context();
        platform::TextSink sink;
        std::string out = dir.file("frame.x");
        sink.open(out);
        xfile::XFileExporter(ctx).pWriteFrame(node, sink);
        sink.close();
        return readFile(out);
    }
};

} // namespace tarnvale::test
