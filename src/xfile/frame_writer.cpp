// pWriteFrame: one node as a Frame block, with its part data, matrix, bone info,
// link name and child frames.
#include "xfile/xfile.h"

#include <optional>
#include <unordered_map>

namespace tarnvale::xfile {

namespace {

// The skin record of a merge shape while its frame is written: the merged
// shapes' entries at the offsets where their vertices landed, and no weights for
// the vertices of shapes without a record. None when no shape carries a weight.
// The entries are lent by the shapes' records and given back with the frame, so
// that a mesh of millions of vertices is not copied.
class MergeRecordGuard {
  public:
    MergeRecordGuard(ObjectBonesCollection& records, const SGShapePtr& shape,
                     const std::vector<std::pair<ObjectBones*, int32_t>>& sources)
        : records_(records) {
        bool weighted = false;
        for (const auto& [source, offset] : sources)
            weighted = weighted || source->hasWeights();
        if (!weighted) return;
        auto record = std::make_shared<ObjectBones>();
        record->Add(shape);
        for (const auto& [source, offset] : sources) {
            // A shape merged twice lends its entries once; its second place gets copies.
            auto [lent, first] = lentAt_.try_emplace(source, offset);
            for (int32_t i = 1; i <= source->Count(); ++i) {
                if (first)
                    std::swap(record->Item(offset + i), source->Item(i));
                else
                    record->Item(offset + i) = record->Item(lent->second + i);
            }
        }
        records_.push_back(record);
        added_ = record.get();
    }
    MergeRecordGuard(const MergeRecordGuard&) = delete;
    MergeRecordGuard& operator=(const MergeRecordGuard&) = delete;
    ~MergeRecordGuard() {
        if (!added_) return;
        for (const auto& [source, offset] : lentAt_)
            for (int32_t i = 1; i <= source->Count(); ++i)
                std::swap(source->Item(i), added_->Item(offset + i));
        if (!records_.empty() && records_.back().get() == added_) records_.pop_back();
    }
    ObjectBones* record() const { return added_; }

  private:
    ObjectBonesCollection& records_;
    std::unordered_map<ObjectBones*, int32_t> lentAt_;
    ObjectBones* added_ = nullptr;
};

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
    std::vector<std::pair<ObjectBones*, int32_t>> skins; // records of merged shapes, at their offsets
    for (int32_t i = 0; i < count; ++i) {
        SGShapePtr shape = shapes->GetItem(i);
        if (shape->GetGeometryKind() == kGeometryPolygonMesh) {
            if (!merge) {
                merge.emplace(node, f_.SceneGraph->CreateShape());
                merge->shape()->SetName(node->GetName());
            }
            const int32_t offset = merge->shape()->GetVertexCount();
            merge->shape()->MergeShape(shape);
            if (ObjectBones* record = recordOf(shape.get())) skins.emplace_back(record, offset);
        } else if (shape->GetTypeCode() % 100 == kTypeCodeBone) {
            pWriteBoneInfo(node, file);
        }
    }
    if (merge) {
        // The merge shape and its record are gone when the frame is.
        MergeRecordGuard skin(f_.colObjectBones, merge->shape(), skins);
        if (skin.record()) recordOf_[merge->shape().get()] = skin.record();
        if (merge->shape()->GetVertexCount() > 0) pWriteMesh(merge->shape(), file, name, node);
        recordOf_.erase(merge->shape().get());
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
