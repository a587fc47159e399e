// An independent reader of our X files: Assimp's X importer must find the frames,
// meshes, faces and materials that the file holds, our own blocks notwithstanding
// (part data, bone info, FS10 materials: the example has each).
#include "gltf/gltf.h"
#include "xfile/xfile_fixture.h"

#include <assimp/Importer.hpp>
#include <assimp/scene.h>
#include <regex>

namespace tarnvale::test {
namespace {

struct Counts {
    int frames = 0, meshes = 0, faces = 0, materials = 0;
};

// What the file says of itself: its blocks, and the counts in its material lists.
Counts countsInText(const std::string& x) {
    Counts c;
    std::istringstream in(x);
    std::string line;
    std::regex faces(R"(^(\d+);  //  \d+ faces with materials)"), mats(R"(^(\d+);        //  \d+ Materials)");
    std::smatch m;
    while (std::getline(in, line)) {
        if (line.rfind("Frame frm-", 0) == 0) ++c.frames;
        if (line.rfind("Material mtl_", 0) == 0) ++c.materials;
        if (std::regex_search(line, m, faces)) c.faces += std::stoi(m[1]);
        if (std::regex_search(line, m, mats)) c.meshes += std::stoi(m[1]); // one per material
    }
    return c;
}

int countFrames(const aiNode* n) {
    int c = std::string(n->mName.C_Str()).rfind("frm-", 0) == 0 ? 1 : 0;
    for (unsigned i = 0; i < n->mNumChildren; ++i) c += countFrames(n->mChildren[i]);
    return c;
}

void expectAssimpAgrees(const std::string& path) {
    Assimp::Importer importer;
    const aiScene* s = importer.ReadFile(path, 0);
    ASSERT_TRUE(s) << path << ": " << importer.GetErrorString();
    Counts want = countsInText(readFile(path));
    int faces = 0;
    for (unsigned i = 0; i < s->mNumMeshes; ++i) faces += static_cast<int>(s->mMeshes[i]->mNumFaces);
    EXPECT_EQ(countFrames(s->mRootNode), want.frames) << path;
    EXPECT_EQ(static_cast<int>(s->mNumMeshes), want.meshes) << path;
    EXPECT_EQ(faces, want.faces) << path;
    EXPECT_EQ(static_cast<int>(s->mNumMaterials), want.materials) << path;
    EXPECT_GT(want.frames, 0);
}

TEST(IndependentReader, ReadsTheExampleExport) {
    Rig rig;
    auto loaded = gltf::readScene(sourcePath("examples/trainer.gltf"));
    rig.scene = loaded.scene;
    auto t = rig.plugin();
    rig.exportTo(*t, rig.dir.file("trainer.x"));
    expectAssimpAgrees(rig.dir.file("trainer.x"));
}

} // namespace
} // namespace tarnvale::test
