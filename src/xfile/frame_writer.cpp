// pWriteFrame: one node as a Frame block, with its part data, matrix, bone info,
// link name and child frames.
#include "xfile/xfile.h"

#include <optional>

namespace tarnvale::xfile {

namespace {

// Attaches the merge shape to the node and detaches it however the frame ends, so
// that the scene is as it was.
class MergeShapeGuard {
public:
    MergeShapeGuard(const SGObjectPtr& node, SGShapePtr shape) : node_(node), shape_(std::move(shape)) {
        node_->AddShape(shape_);
    }
    MergeShapeGuard(const MergeShapeGuard&) = delete;
    MergeShapeGuard& operator=(const MergeShapeGuard&) = delete;
    const SGShapePtr& shape() const { return shape_; }
    void release() {
        SGShapePtr s = std::move(shape_);
        node_->RemoveShape(s);
    }
    ~MergeShapeGuard() {
        if (!shape_) return;
        try {
            node_->RemoveShape(shape_);
        } catch (...) {
            // The failure that ended the frame is the one to report.
        }
    }

private:
    SGObjectPtr node_;
    SGShapePtr shape_;
};

} // namespace

void XFileExporter::pWriteFrame(const SGObjectPtr& node, TextSink& file) {
    walkDepthFirst(
        node, [&](const SGObjectPtr& n, int32_t, size_t) { writeFrameHead(n, file); },
        [&](const SGObjectPtr& n) {
            file.writeChar('}');
            file.nextPrintZone();
            file.nextPrintZone();
            file.writeRaw("// End of frame frm-");
            file.write(pCleanName(n->GetName()));
            file.endLine();
            frameDone();
        });
}

void XFileExporter::writeFrameHead(const SGObjectPtr& node, TextSink& file) {
    const std::string name = pCleanName(node->GetName());
    file.writeRaw("Frame frm-");
    file.write(name);
    file.writeRaw(" {");
    file.endLine();
    pWritePartData(node, file);
    pWriteMatrix(node, file);

    // The count is taken before the merge shape is attached, so it is not visited.
    SGShapeListPtr shapes = node->GetShapes();
    int32_t count = shapes->GetCount();
    std::optional<MergeShapeGuard> merge;
    for (int32_t i = 0; i < count; ++i) {
        SGShapePtr shape = shapes->GetItem(i);
        if (shape->GetGeometryKind() == kGeometryPolygonMesh) {
            if (!merge) {
                merge.emplace(node, f_.SceneGraph->CreateShape());
                merge->shape()->SetName(node->GetName());
            }
            merge->shape()->MergeShape(shape);
        } else if (shape->GetTypeCode() % 100 == kTypeCodeBone) {
            pWriteBoneInfo(node, file);
        }
    }
    if (merge) {
        if (merge->shape()->GetVertexCount() > 0) pWriteMesh(merge->shape(), file, name, node);
        merge->release();
    }
    pWriteAnimLink(node, file);
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
