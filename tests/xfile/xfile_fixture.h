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
    std::vector<std::string> ddsNames;
    platform::FixedClock clock;
    // A polygon a part, on three threads: the parts must join as one thread writes.
    platform::Workers workers{3, 1};

    xfile::XFileContext context() {
        return {templateFile,  exportGroup, sceneGraph,
                friendlyName,  guid,        bones,
                materialField, attachField, [this](const std::string& t) { status += t; },
                clock,         nullptr,     &workers,
                &ddsNames};
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

    // Runs `write` on an open sink (of part.x) and gives what it wrote.
    template <typename Write> std::string written(Write write) {
        auto ctx = context();
        xfile::XFileExporter x(ctx);
        platform::TextSink sink;
        std::string out = dir.file("part.x");
        sink.open(out);
        write(x, sink);
        sink.close();
        return readFile(out);
    }

    std::string mesh(const SGShapePtr& shape, const std::string& name) {
        return written(
            [&](xfile::XFileExporter& x, platform::TextSink& s) { x.pWriteMesh(shape, s, name, nullptr); });
    }

    // One frame tree written on its own, with `root` as the export group.
    std::string frame(const SGObjectPtr& node, SGObjectPtr root) {
        exportGroup = std::move(root);
        return written([&](xfile::XFileExporter& x, platform::TextSink& s) { x.pWriteFrame(node, s); });
    }
};

inline std::shared_ptr<scene::MemoryMaterial> makeMaterial(Rgba diffuse, float power,
                                                           const std::string& name = "m") {
    auto m = std::make_shared<scene::MemoryMaterial>();
    m->name = name;
    m->diffuse = diffuse;
    m->power = power;
    return m;
}

// A shape with the given positions (u, v taken from x, y) and one normal (0, 0, 1).
inline std::shared_ptr<scene::MemoryShape> shapeOf(const std::vector<Vec3>& positions) {
    auto s = std::make_shared<scene::MemoryShape>();
    for (const Vec3& p : positions) {
        s->positions().push_back(p);
        s->uvs().push_back({p.x, p.y});
    }
    s->normals().push_back({0, 0, 1});
    return s;
}

inline void addFace(scene::MemoryShape& s, const SGMaterialPtr& m, std::initializer_list<int> vertices) {
    std::vector<scene::MemoryShape::Corner> c;
    for (int v : vertices)
        c.push_back({v, 0, v});
    s.addPolygon(m, c);
}

// The quad named panel: (0,0,0) (1,0,0) (1,1,0) (0,1,0), uv = xy, diffuse
// (0.8, 0.1, 0.1, 0.98), power 50.
inline std::shared_ptr<scene::MemoryShape> panelQuad() {
    auto s = shapeOf({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}});
    addFace(*s, makeMaterial({0.8f, 0.1f, 0.1f, 0.98f}, 50), {0, 1, 2, 3});
    return s;
}

} // namespace tarnvale::test
