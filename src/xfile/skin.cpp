// Skin records of meshes and their MeshSkinWeights block.
#include "xfile/xfile.h"

#include <array>
#include <bit>
#include <cstring>
#include <unordered_map>
#include <unordered_set>

namespace tarnvale::xfile {

namespace {

template <typename T> T& itemAt(std::vector<T>& items, int32_t position) {
    if (position < 1 || position > static_cast<int32_t>(items.size()))
        throw Failure(err::kSubscript, "Subscript out of range: item " + std::to_string(position));
    return items[position - 1];
}

template <typename T> void removeAt(std::vector<T>& items, int32_t position) {
    itemAt(items, position);
    items.erase(items.begin() + (position - 1));
}

} // namespace

MeshWeight& PointBones::Add(SGObjectPtr Bone, float Weight) {
    items_.push_back({std::move(Bone), Weight});
    return items_.back();
}

MeshWeight& PointBones::Item(int32_t vntIndexKey) {
    return itemAt(items_, vntIndexKey);
}
void PointBones::Remove(int32_t vntIndexKey) {
    removeAt(items_, vntIndexKey);
}

void ObjectBones::Add(const SGShapePtr& o) {
    if (!o) throw Failure(err::kObjectNotSet, "Object variable not set: no shape");
    Object = o;
    unmade_ += static_cast<size_t>(std::max(o->GetVertexCount(), 0));
}

void ObjectBones::make() {
    items_.resize(items_.size() + unmade_);
    unmade_ = 0;
}

PointBones& ObjectBones::Item(int32_t vntIndexKey) {
    make();
    return itemAt(items_, vntIndexKey);
}

void ObjectBones::appendCopyOf(int32_t vntIndexKey) {
    make();
    PointBones copy = itemAt(items_, vntIndexKey);
    items_.push_back(std::move(copy));
}

void ObjectBones::Remove(int32_t vntIndexKey) {
    make();
    removeAt(items_, vntIndexKey);
}

bool ObjectBones::hasWeights() const {
    for (const PointBones& point : items_)
        if (point.Count() > 0) return true;
    return false;
}

void ObjectBones::Export(TextSink& i, const std::string& sname) const {
    i.writeRaw("MeshSkinWeights {       // Mesh skin weights for ");
    i.write(sname);
    i.endLine();
    i.writeRaw(paddedNumber(Count()) + ";");
    i.endLine();
    // Every further line starts at column 0, so its print zones are known: counts
    // at 14, bone names at 28, weights at the zone after the name. Lines are made
    // in the sink's buffer; names are cleaned once per bone, and a weight equal to
    // the one before is not formatted again.
    std::unordered_map<const SGObject*, std::string> cleaned;
    // Neighbouring vertices draw on the same few bones: the last eight are looked
    // for before the map.
    std::array<std::pair<const SGObject*, const std::string*>, 8> recent{};
    size_t replaced = 0;
    auto nameOf = [&](SGObject* bone) -> const std::string& {
        for (const auto& [b, name] : recent)
            if (b == bone) return *name;
        auto [it, added] = cleaned.try_emplace(bone);
        if (added) it->second = platform::toWindows1252(pCleanName(bone->GetName()));
        recent[replaced++ % recent.size()] = {bone, &it->second};
        return it->second;
    };
    float lastWeight = 0;
    char weightText[kMaxNumberText];
    size_t weightLength = 0;
    auto blanks = [](char* p, size_t n) { return static_cast<char*>(std::memset(p, ' ', n)) + n; };
    auto count = [&](int32_t n) {
        char* p = i.claim(64);
        p = blanks(p, 14);
        p = platform::paddedNumberTo(n, p);
        p = std::copy_n(";\r\n", 3, p);
        i.commit(p);
    };
    for (const PointBones& point : items_) {
        count(point.Count());
        for (const MeshWeight& w : point) {
            if (!w.Bone) throw Failure(err::kObjectNotSet, "Object variable not set: a weight has no bone");
            const std::string& name = nameOf(w.Bone.get());
            if (weightLength == 0 ||
                std::bit_cast<uint32_t>(w.Weight) != std::bit_cast<uint32_t>(lastWeight)) {
                weightLength = static_cast<size_t>(formatNumberTo(w.Weight, weightText) - weightText);
                lastWeight = w.Weight;
            }
            const size_t column = 28 + name.size() + 3;
            char* p = i.claim(column + 14 + weightLength + 3);
            p = blanks(p, 28);
            *p++ = '"';
            p = std::copy(name.begin(), name.end(), p);
            p = std::copy_n("\",", 2, p);
            p = blanks(p, (column / 14 + 1) * 14 - column);
            p = std::copy_n(weightText, weightLength, p);
            p = std::copy_n(";\r\n", 3, p);
            i.commit(p);
        }
    }
    for (size_t k = 0; k < unmade_; ++k)
        count(0);
    i.writeRaw("} // End mesh skin weights ");
    i.write(sname);
    i.endLine();
}

void XFileExporter::pFindSkins(const SGObjectPtr& node) {
    // The shapes that have a record, so that a scene of many meshes is not searched
    // once per node.
    std::unordered_set<const SGShape*> recorded;
    for (const auto& record : f_.colObjectBones)
        recorded.insert(record->Object.get());
    walkDepthFirst(
        node,
        [&](const SGObjectPtr& n, int32_t, size_t) {
            SGShapePtr shape = n->GetShape();
            if (!shape || shape->GetTypeCode() % 100 != kGeometryPolygonMesh) return;
            if (!recorded.insert(shape.get()).second) return;
            auto record = std::make_shared<ObjectBones>();
            record->Add(shape);
            // The weights as the scene gives them, vertex by vertex; each vertex's
            // entries are made at their size at once, and take the bones over.
            std::vector<VertexWeight> weights = shape->GetVertexWeights();
            for (size_t k = 0, next; k < weights.size(); k = next) {
                for (next = k + 1; next < weights.size() && weights[next].vertex == weights[k].vertex;)
                    ++next;
                PointBones& point = record->Item(weights[k].vertex + 1);
                point.reserve(next - k);
                for (size_t j = k; j < next; ++j)
                    point.Add(std::move(weights[j].bone), weights[j].weight);
            }
            f_.colObjectBones.push_back(record);
        },
        [](const SGObjectPtr&) {});
    indexRecords();
}

void XFileExporter::indexRecords() {
    recordOf_.clear();
    for (const auto& record : f_.colObjectBones)
        recordOf_.try_emplace(record->Object.get(), record.get());
}

ObjectBones* XFileExporter::recordOf(const SGShape* shape) const {
    auto it = recordOf_.find(shape);
    return it == recordOf_.end() ? nullptr : it->second;
}

} // namespace tarnvale::xfile
