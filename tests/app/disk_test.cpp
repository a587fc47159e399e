// Faults on disk while the command exports: each ends in the failure box with the
// stage and the system's own text, exit 1, and what was on disk before is as it
// was, but for the X file, which the export replaces.
#include "gltf/gltf_builder.h"
#include "support.h"

#include <sstream>
#include <sys/mount.h>
#include <unistd.h>

namespace tarnvale::test {
namespace {

// A small file system of its own at `folder`, where the machine lets us mount
// one (root, CI); unmounted at the end.
struct SmallDisk {
    std::string folder;
    bool mounted = false;
    SmallDisk(std::string at, size_t pages) : folder(std::move(at)) {
        fs::create_directories(folder);
        const std::string options = "size=" + std::to_string(pages * 4) + "k";
        mounted = ::geteuid() == 0 && ::mount("tmpfs", folder.c_str(), "tmpfs", 0, options.c_str()) == 0;
    }
    bool readOnly() {
        return ::mount(nullptr, folder.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) == 0;
    }
    ~SmallDisk() {
        if (mounted) ::umount(folder.c_str());
    }
};

TEST(DiskFaults, EachEndsInTheFailureBoxAndKeepsWhatWasThere) {
    TempDir d;
    const std::string scene = sourcePath("examples/trainer.gltf"), args = " --yes --no-tool";
    // A whole export gives the sizes that the small disks below are cut to.
    ASSERT_EQ(tarnvale("export " + scene + " -o " + d.file("whole.x") + args, d).code, 0);
    auto pages = [&](const char* e) {
        return (fs::file_size(d.file(std::string("whole.") + e)) + 4095) / 4096;
    };
    const std::string plugin = d.folder("plugin");
    fs::copy_file(sourcePath("data/modeldef.xml"), plugin + "/modeldef.xml");
    fs::create_directory(plugin + "/Tarnvale.X"); // a template that cannot be read
    const std::string oldConfig =
        "<?xml version=\"1.0\"?>\n<TarnvaleConfig version=\"1.0\"><FriendlyName>Kept"
        "</FriendlyName><GUID>0123ABCD-0A0B-4C0D-0102-030405060708</GUID></TarnvaleConfig>\n";
    struct Row {
        const char* what;
        std::string folder;  // of the output, below the test's
        size_t diskPages;    // a small disk of this size there; 0: none
        bool readOnly;       // that disk mounted read-only once the old files are in
        std::string old;     // files there before: "config", "xanim" or both
        std::string options; // of the command
        std::string before;  // ahead of it on the line
        std::string box;     // the failure box; the test's folder reads D
    };
    const std::string both = "config xanim", limit = "trap '' XFSZ; ulimit -f 16; ", x = "Creating X file\n";
    const Row rows[] = {
        {"no output folder", "missing", 0, false, "", "", "",
         x + "76 - D/missing/m.x: No such file or directory"},
        {"the output a folder", "dir", 0, false, "", "", "", x + "75 - D/dir/m.x: Is a directory"},
        {"a file-size limit", "limit", 0, false, both, "", limit, x + "75 - D/limit/m.x: File too large"},
        {"a template that is a folder", "t", 0, false, both, " --plugin-dir " + plugin, "",
         x + "75 - D/plugin\\Tarnvale.X: Is a directory"},
        {"the disk full at the X file", "x", pages("x") / 2 + 2, false, both, "", "",
         x + "75 - D/x/m.x: No space left on device"},
        // The old files take a page each; a new one is written beside the old.
        {"the disk full at the XANIM", "xanim", pages("x") + 3, false, both, "", "",
         "Creating XANIM file\n75 - D/xanim/m.xanim: No space left on device"},
        {"the disk full at the sidecar", "config", pages("x") + 1 + pages("xanim"), false, "config", "", "",
         "Creating XANIM file\n75 - D/config/m.config: No space left on device"},
        {"a read-only disk", "ro", 8, true, both, "", "", x + "75 - D/ro/m.x: Read-only file system"},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.what);
        const std::string folder = d.file(r.folder);
        std::optional<SmallDisk> disk;
        if (r.diskPages) {
            disk.emplace(folder, r.diskPages);
            // The rows from here on all want a disk of their own.
            if (!disk->mounted)
                GTEST_SKIP() << r.what << " and after: no small file system can be mounted here";
        }
        if (r.folder != "missing") fs::create_directories(folder + (r.folder == "dir" ? "/m.x" : ""));
        const std::map<std::string, std::string> old = {{"config", oldConfig}, {"xanim", "<old/>"}};
        std::vector<std::string> kept;
        std::istringstream names(r.old);
        for (std::string e; names >> e;)
            kept.push_back(e);
        for (const std::string& e : kept)
            writeFile(folder + "/m." + e, old.at(e));
        if (r.readOnly) {
            ASSERT_TRUE(disk->readOnly());
        }
        const RunResult run =
            tarnvale("export " + scene + " -o " + folder + "/m.x" + args + r.options, d, r.before);
        EXPECT_EQ(run.code, 1);
        std::string err = run.err;
        for (size_t at; (at = err.find(d.path())) != std::string::npos;)
            err.replace(at, d.path().size(), "D");
        EXPECT_NE(err.find("[critical] FS10 Export\n" + r.box + "\n"), std::string::npos) << err;
        for (const std::string& e : kept)
            EXPECT_EQ(readFile(folder + "/m." + e), old.at(e)) << e;
        EXPECT_EQ(fs::is_directory(folder + "/m.x"), r.folder == "dir");
        // No new file left behind, and no partial X file for the tests' DirectX reader.
        std::error_code ec;
        for (const auto& e : fs::directory_iterator(folder, ec))
            EXPECT_NE(e.path().filename().string().rfind(".tarnvale", 0), 0u) << e.path();
        fs::remove(folder + "/m.x", ec);
    }
}

// The material edit writes the scene beside itself and renames it over: a disk
// too full for the new file, or read-only, leaves the old one byte for byte.
TEST(DiskFaults, TheMaterialEditLeavesTheSceneAsItWas) {
    TempDir d;
    GltfBuilder b;
    b.doc["materials"] = json::array({{{"name", "Paint"}}});
    b.node({{"name", "n"}, {"mesh", b.triangles({0, 0, 0, 1, 0, 0, 0, 1, 0}, {0, 1, 2}, {{"material", 0}})}});
    b.bin.append(20000, '\x5A');
    const std::string scene = readFile(b.saveGlb(d.file("scene.glb")));
    const size_t pages = (scene.size() + 4095) / 4096;
    // A file-size limit needs no disk of its own; the other two do, and come last.
    for (const auto& [folder, limit, text] :
         {std::tuple{"limit", true, "File too large"}, std::tuple{"full", false, "No space left on device"},
          std::tuple{"ro", false, "Read-only file system"}}) {
        SCOPED_TRACE(folder);
        std::optional<SmallDisk> disk;
        if (!limit) {
            disk.emplace(d.file(folder), pages + 1);
            if (!disk->mounted)
                GTEST_SKIP() << folder << " and after: no small file system can be mounted here";
        }
        const std::string path = d.folder(folder) + "/scene.glb";
        writeFile(path, scene);
        if (folder == std::string("ro")) {
            ASSERT_TRUE(disk->readOnly());
        }
        const RunResult run = tarnvale("material apply " + path + " --material Paint --preset Gloss", d,
                                       limit ? "trap '' XFSZ; ulimit -f 16; " : "");
        EXPECT_EQ(run.code, 1);
        EXPECT_NE(run.err.find(path + " is unchanged: cannot write it: " + text), std::string::npos)
            << run.err;
        EXPECT_EQ(readFile(path), scene);
        EXPECT_EQ(std::distance(fs::directory_iterator(d.file(folder)), fs::directory_iterator()), 1);
    }
}

} // namespace
} // namespace tarnvale::test
