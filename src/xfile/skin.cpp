// Skin records of meshes and their MeshSkinWeights block.
#include "xfile/xfile.h"

#include <unordered_set>

namespace tarnvale::xfile {

namespace {

template <typename T>
T& itemAt(std::vector<T>& items, int32_t position) {
    if (position < 1 || position > static_cast<int32_t>(items.size()))
        throw Failure(err::kSubscript, "Subscript out of range: item " + std::to_string(position));
    return items[position - 1];
}

template <typename T>
void removeAt(std::vector<T>& items, int32_t position) {
    itemAt(items, position);
    items.erase(items.begin() + (position - 1));
}

} // namespace

std::shared_ptr<MeshWeight> PointBones::Add(const SGObjectPtr& Bone, float Weight) {
    auto w = std::make_shared<MeshWeight>();
    w->Bone = Bone;
    w->Weight = Weight;
    items_.push_back(w);
    return w;
}

MeshWeight& PointBones::Item(int32_t vntIndexKey) { return *itemAt(items_, vntIndexKey); }
void PointBones::Remove(int32_t vntIndexKey) { removeAt(items_, vntIndexKey); }

void ObjectBones::Add(const SGShapePtr& o) {
    if (!o) throw Failure(err::kObjectNotSet, "Object variable not set: no shape");
    Object = o;
    items_.resize(items_.size() + static_cast<size_t>(std::max(o->GetVertexCount(), 0)));
}

PointBones& ObjectBones::Item(int32_t vntIndexKey) { return itemAt(items_, vntIndexKey); }
void ObjectBones::Remove(int32_t vntIndexKey) { removeAt(items_, vntIndexKey); }

void ObjectBones::Export(TextSink& i, const std::string& sname) const {
    i.writeRaw("MeshSkinWeights {       // Mesh skin weights for ");
    i.write(sname);
    i.endLine();
    i.writeRaw(paddedNumber(Count()) + ";");
    i.endLine();
    for (const PointBones& point : items_) {
        i.nextPrintZone();
        i.writeRaw(paddedNumber(point.Count()) + ";");
        i.endLine();
        for (const auto& w : point) {
            if (!w->Bone) throw Failure(err::kObjectNotSet, "Object variable not set: a weight has no bone");
            i.nextPrintZone();
            i.nextPrintZone();
            i.writeChar('"');
            i.write(pCleanName(w->Bone->GetName()));
            i.writeRaw("\",");
            i.nextPrintZone();
            i.writeRaw(pFormatNumber(w->Weight) + ";");
            i.endLine();
        }
    }
    i.writeRaw("} // End mesh skin weights ");
    i.write(sname);
    i.endLine();
}

void XFileExporter::pFindSkins(const SGObjectPtr& node) {
    // The shapes that have a record, so that a scene of many meshes is not searched
    // once per node.
    std::unordered_set<const SGShape*> recorded;
    for (const auto& record : f_.colObjectBones) recorded.insert(record->Object.get());
    walkDepthFirst(
        node,
        [&](const SGObjectPtr& n, int32_t, size_t) {
            SGShapePtr shape = n->GetShape();
            if (!shape || shape->GetTypeCode() % 100 != kGeometryPolygonMesh) return;
            if (!recorded.insert(shape.get()).second) return;
            auto record = std::make_shared<ObjectBones>();
            record->Add(shape);
            f_.colObjectBones.push_back(record);
        },
        [](const SGObjectPtr&) {});
}

} // namespace tarnvale::xfile
