// The editor's common dialog answered by a script, and a form opened on a record.
#pragma once

#include "editor/editor.h"
#include "support.h"

#include <deque>

namespace tarnvale::test {

// Each box takes the next answer: a file name, or a colour as decimal text;
// none cancels. What each box was shown is recorded.
struct ScriptedBoxes : editor::DialogBoxes {
    std::deque<std::optional<std::string>> answers;
    std::vector<std::string> shown;

    bool answer(editor::CommonDialog& cdlg, const std::string& what, bool colour) {
        shown.push_back(what);
        if (answers.empty() || !answers.front()) {
            if (!answers.empty()) answers.pop_front();
            return false;
        }
        if (colour)
            cdlg.Color = std::stoi(*answers.front());
        else
            cdlg.FileName = *answers.front();
        answers.pop_front();
        return true;
    }
    bool showOpen(editor::CommonDialog& c) override {
        return answer(c, "open " + std::to_string(c.Flags) + " " + c.DefaultExt, false);
    }
    bool showSave(editor::CommonDialog& c) override {
        return answer(c, "save " + std::to_string(c.Flags) + " " + c.DefaultExt + " " + c.FileName, false);
    }
    bool showColor(editor::CommonDialog& c) override { return answer(c, "color", true); }
};

// A loaded form on a record, its library in a folder of its own unless given one.
struct ScriptedForm {
    TempDir dir;
    ScriptedBoxes boxes;
    std::shared_ptr<material::FS10Material> record;
    editor::frmOptions form;

    explicit ScriptedForm(
        std::shared_ptr<material::FS10Material> r = std::make_shared<material::FS10Material>(),
        const std::string& library = "")
        : record(std::move(r)), form(boxes, library.empty() ? dir.path() : library) {
        form.EditMaterial = record;
        form.Form_Load();
    }
};

} // namespace tarnvale::test
