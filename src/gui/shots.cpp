// tarnvale-shots OUTDIR [LIBRARY]: pictures of the material editor's pages, taken
// from the real dialog (run under QT_QPA_PLATFORM=offscreen, or on a display).
#include "gui/gui.h"
#include "scene/scene.h"

#include <QApplication>
#include <QWidget>
#include <cstdio>

int main(int argc, char** argv) {
    using namespace tarnvale;
    if (argc < 2) {
        std::fprintf(stderr, "usage: tarnvale-shots OUTDIR [LIBRARY]\n");
        return 2;
    }
    const std::string out = argv[1], library = argc > 2 ? argv[2] : argv[1];
    gui::QtSession session(argc, argv);
    gui::QtDialogBoxes boxes;
    // A record as the example's painted fuselage would give it.
    auto host = std::make_shared<scene::MemoryMaterial>();
    host->diffuse = {0.85f, 0.1f, 0.08f, 1};
    host->specular = {0.6f, 0.6f, 0.6f};
    host->power = 200;
    host->textures = std::make_shared<scene::MemoryTextures>();
    host->textures->fileName = "textures\\trainer_t.dds";
    host->textures->bumpFileName = "textures\\trainer_n.dds";
    auto record = std::make_shared<material::FS10Material>();
    record->CreateCSG(host, -1);
    editor::frmOptions form(boxes, library);
    form.EditMaterial = record;
    form.Form_Load();
    form.cmdStd_Click(2);
    auto dialog = gui::makeOptionsDialog(form);
    dialog->show();
    const std::pair<int, const char*> pages[] = {{9, "standard-materials"},
                                                 {6, "framebuffer-blend"},
                                                 {4, "special-functionality"},
                                                 {10, "enhanced-parameters"}};
    for (const auto& [tab, name] : pages) {
        form.selectTab(tab);
        gui::refresh(*dialog);
        QApplication::processEvents();
        const std::string path = out + "/frmoptions-" + name + ".png";
        if (!dialog->grab().save(QString::fromStdString(path))) {
            std::fprintf(stderr, "tarnvale-shots: cannot write %s\n", path.c_str());
            return 1;
        }
        std::printf("%s\n", path.c_str());
    }
    return 0;
}
