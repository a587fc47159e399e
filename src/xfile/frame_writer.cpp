// pWriteFrame: one node as a Frame block, with its part data, matrix, bone info,
// link name and child frames.
#include "xfile/xfile.h"

namespace tarnvale::xfile {

void XFileExporter::pWriteFrame(const SGObjectPtr& node, TextSink& file) {
    const std::string name = pCleanName(node->GetName());
    file.writeRaw("Frame frm-");
    file.write(name);
    file.writeRaw(" {");
    file.endLine();
    pWritePartData(node, file);
    pWriteMatrix(node, file);

    SGShapeListPtr shapes = node->GetShapes();
    int32_t count = shapes->GetCount();
    for (int32_t i = 0; i < count; ++i) {
        SGShapePtr shape = shapes->GetItem(i);
        if (shape->GetGeometryKind() == kGeometryPolygonMesh) continue;
        if (shape->GetTypeCode() % 100 == kTypeCodeBone) pWriteBoneInfo(node, file);
    }

    pWriteAnimLink(node, file);
    SGNodeListPtr children = node->GetChildren();
    int32_t childCount = children->GetCount();
    for (int32_t i = 0; i < childCount; ++i) pWriteFrame(children->GetItem(i), file);

    file.writeChar('}');
    file.nextPrintZone();
    file.nextPrintZone();
    file.writeRaw("// End of frame frm-");
    file.write(name);
    file.endLine();
    frameDone();
}

void XFileExporter::pWritePartData(const SGObjectPtr& node, TextSink& file) {
    // The text goes out as its codes in the output's code page, one byte each.
    const std::string text = platform::toWindows1252(node->GetFieldText(f_.lAttachFieldId));
    if (text.empty()) return;
    file.writeRaw("PartData {");
    file.endLine();
    file.writeRaw(paddedNumber(static_cast<int64_t>(text.size()) + 1));
    file.writeChar(';');
    file.endLine();
    for (size_t i = 1; i <= text.size(); ++i) {
        if (i % 10 == 0) file.endLine();
        file.writeRaw(paddedNumber(static_cast<unsigned char>(text[i - 1])));
        file.writeChar(',');
    }
    file.writeRaw(" 0;");
    file.endLine();
    file.writeRaw("}  // End Partdata");
    file.endLine();
}

void XFileExporter::pWriteMatrix(const SGObjectPtr& node, TextSink& file) {
    file.writeRaw("FrameTransformMatrix { ");
    file.endLine();
    if (node == f_.cgExportGroup) {
        // A root frame: its transform relative to its own parent is not written.
        file.writeRaw("   1.0, 0.0, 0.0, 0.0,\r\n"
                      "   0.0, 1.0, 0.0, 0.0,\r\n"
                      "   0.0, 0.0, 1.0, 0.0,\r\n"
                      "   0.0, 0.0, 0.0, 1.0;;\r\n");
    } else {
        SGObjectPtr parent = node->GetParent();
        Matrix16 m = node->GetRelativeMatrix(parent, 0);
        char buf[kMaxNumberText];
        for (int row = 0; row < 4; ++row) {
            for (int col = 0; col < 4; ++col) {
                file.writeRaw(std::string_view(buf, formatNumberTo(m[row * 4 + col], buf) - buf));
                if (col < 3) file.writeRaw(", ");
            }
            file.writeRaw(row < 3 ? "," : ";;");
            file.endLine();
        }
    }
    file.writeRaw("}  // End FrameTransformMatrix");
    file.endLine();
}

namespace {

void writeNameBlock(TextSink& file, const char* opening, const std::string& name) {
    file.writeRaw(opening);
    file.endLine();
    file.writeChar('"');
    file.write(name);
    file.writeRaw("\";");
    file.endLine();
    file.writeChar('}');
    file.endLine();
}

} // namespace

void XFileExporter::pWriteBoneInfo(const SGObjectPtr& node, TextSink& file) {
    writeNameBlock(file, "BoneInfo { ", pCleanName(node->GetName()));
}

void XFileExporter::pWriteAnimLink(const SGObjectPtr& node, TextSink& file) {
    writeNameBlock(file, "AnimLinkName { ", pCleanName(node->GetName()));
}

} // namespace tarnvale::xfile
