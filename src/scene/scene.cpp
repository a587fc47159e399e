// Nodes, fields, units and the scene object.
#include "scene/scene.h"

#include <charconv>
#include <cmath>
#include <unordered_set>

namespace tarnvale::scene {

namespace {

// A list interface over a copied vector of items.
template <typename Interface, typename Item> class VectorList : public Interface {
  public:
    VectorList(std::vector<Item> items, const char* what) : items_(std::move(items)), what_(what) {}
    int32_t GetCount() override { return static_cast<int32_t>(items_.size()); }
    Item GetItem(int32_t i) override {
        if (i < 0 || static_cast<size_t>(i) >= items_.size())
            throw Failure(err::kSubscript,
                          std::string("Subscript out of range: ") + what_ + " " + std::to_string(i));
        return items_[static_cast<size_t>(i)];
    }

  private:
    std::vector<Item> items_;
    const char* what_;
};

using VectorNodeList = VectorList<SGNodeList, SGObjectPtr>;
using VectorShapeList = VectorList<SGShapeList, SGShapePtr>;

std::string fieldText(const std::map<int32_t, std::string>& fields, int32_t id) {
    auto it = fields.find(id);
    return it == fields.end() ? std::string() : it->second;
}

int32_t findIn(const std::map<std::string, int32_t>& names, const std::string& name) {
    auto it = names.find(name);
    return it == names.end() ? -1 : it->second;
}

int32_t addTo(std::map<std::string, int32_t>& names, const std::string& name) {
    auto [it, added] = names.try_emplace(name, static_cast<int32_t>(names.size()));
    return it->second;
}

} // namespace

int32_t FieldRegistry::findMaterial(const std::string& name) const {
    return findIn(material_, name);
}
int32_t FieldRegistry::findObject(const std::string& name) const {
    return findIn(object_, name);
}
int32_t FieldRegistry::addMaterial(const std::string& name) {
    return addTo(material_, name);
}
int32_t FieldRegistry::addObject(const std::string& name) {
    return addTo(object_, name);
}

std::string MemoryMaterial::GetMaterialField(int32_t fieldId) {
    return fieldText(fields, fieldId);
}
std::string MemoryState::GetMaterialField(int32_t fieldId) {
    return fieldText(fields, fieldId);
}

MemoryObject::MemoryObject(std::string name, std::shared_ptr<FieldRegistry> fields)
    : name_(std::move(name)), fields_(std::move(fields)) {}

std::shared_ptr<MemoryObject> MemoryObject::addChild(const std::string& name) {
    auto child = std::make_shared<MemoryObject>(name, fields_);
    child->parent_ = weak_from_this();
    children_.push_back(child);
    return child;
}

MemoryObject::~MemoryObject() {
    // Children are taken over one level at a time, so that a chain of any length is
    // released without one destructor running inside the other.
    std::vector<std::shared_ptr<MemoryObject>> pending = std::move(children_);
    while (!pending.empty()) {
        std::shared_ptr<MemoryObject> node = std::move(pending.back());
        pending.pop_back();
        if (node.use_count() != 1) continue; // held elsewhere: it lives on with its subtree
        for (auto& c : node->children_)
            pending.push_back(std::move(c));
        node->children_.clear();
    }
}

std::shared_ptr<MemoryObject> MemoryObject::findByName(const std::string& name) {
    std::vector<MemoryObject*> stack{this};
    while (!stack.empty()) {
        MemoryObject* node = stack.back();
        stack.pop_back();
        if (node->name_ == name || (!name.empty() && node->sourceName_ == name))
            return node->shared_from_this();
        for (auto it = node->children_.rbegin(); it != node->children_.rend(); ++it)
            stack.push_back(it->get());
    }
    return nullptr;
}

std::shared_ptr<MemoryObject> MemoryObject::addCopyOf(const MemoryObject& source, const std::string& name) {
    auto copy = addChild(name);
    copy->matrix_ = source.matrix_;
    copy->rest_ = source.rest_;
    copy->value_ = source.value_;
    copy->fieldText_ = source.fieldText_;
    copy->keys_ = source.keys_;
    return copy;
}

void MemoryObject::adopt(std::shared_ptr<MemoryObject> child) {
    if (auto old = child->parent_.lock()) std::erase(old->children_, child);
    child->parent_ = weak_from_this();
    children_.push_back(std::move(child));
}

SGNodeListPtr MemoryObject::GetChildren() {
    return std::make_shared<VectorNodeList>(std::vector<SGObjectPtr>(children_.begin(), children_.end()),
                                            "node");
}

SGShapeListPtr MemoryObject::GetShapes() {
    return std::make_shared<VectorShapeList>(shapes_, "shape");
}

SGShapePtr MemoryObject::GetShape() {
    return shapes_.empty() ? nullptr : shapes_.front();
}

void MemoryObject::AddShape(const SGShapePtr& shape) {
    if (!shape) throw Failure(err::kObjectNotSet, "AddShape: no shape given");
    shapes_.push_back(shape);
}

void MemoryObject::RemoveShape(const SGShapePtr& shape) {
    for (auto it = shapes_.begin(); it != shapes_.end(); ++it) {
        if (*it == shape) {
            shapes_.erase(it);
            return;
        }
    }
    throw Failure(err::kInvalidCall, "RemoveShape: the shape is not on node " + name_);
}

std::string MemoryObject::GetFieldText(int32_t fieldId) {
    return fieldText(fieldText_, fieldId);
}

Matrix16 MemoryObject::worldMatrix() {
    Matrix16 m = matrix_;
    for (auto p = parent_.lock(); p; p = p->parent_.lock())
        m = multiply(m, p->matrix_);
    return m;
}

Matrix16 MemoryObject::GetRelativeMatrix(const SGObjectPtr& node, int32_t) {
    auto parent = parent_.lock();
    if (node == parent) return matrix_;
    Matrix16 world = worldMatrix();
    if (!node) return world;
    auto* other = dynamic_cast<MemoryObject*>(node.get());
    if (!other) throw Failure(err::kInvalidCall, "GetRelativeMatrix: the node is not of this scene");
    return multiply(world, inverse(other->worldMatrix()));
}

Vec3 MemoryObject::GetRelativePosition(const SGObjectPtr& node, int32_t flags) {
    if (node == parent_.lock() && rest_) return *rest_;
    Matrix16 m = GetRelativeMatrix(node, flags);
    return {m[12], m[13], m[14]};
}

std::vector<KeyRecord> MemoryObject::GetKeyframes(float start, float end) {
    std::vector<KeyRecord> out;
    out.reserve(keys_.size());
    for (const KeyRecord& k : keys_)
        if (k.time >= start && k.time <= end) out.push_back(k);
    return out;
}

std::string MemoryUnits::ToMetres(double value, int32_t unitCode) {
    static constexpr double kFactor[] = {1.0, 0.01, 0.001, 0.0254, 0.3048, 1000.0, 0.9144, 1609.344};
    if (unitCode < 0 || unitCode >= static_cast<int32_t>(std::size(kFactor)))
        throw Failure(err::kInvalidCall, "Unknown unit code " + std::to_string(unitCode));
    char buf[64];
    auto r = std::to_chars(buf, buf + sizeof buf, value * kFactor[unitCode]);
    return std::string(buf, r.ptr);
}

std::shared_ptr<MemoryScene> MemoryScene::create(const std::string& rootName) {
    std::shared_ptr<MemoryScene> s(new MemoryScene());
    s->fields_ = std::make_shared<FieldRegistry>();
    s->root_ = std::make_shared<MemoryObject>(rootName, s->fields_);
    return s;
}

SGDocumentPtr MemoryScene::GetDocument() {
    return std::static_pointer_cast<SGDocument>(shared_from_this());
}

BonesLeftOut keepBonesWithin(MemoryObject& group) {
    std::unordered_set<const SGObject*> inside;
    std::vector<MemoryObject*> nodes, stack{&group};
    while (!stack.empty()) {
        MemoryObject* node = stack.back();
        stack.pop_back();
        inside.insert(node);
        nodes.push_back(node);
        for (const auto& c : node->children())
            stack.push_back(c.get());
    }
    BonesLeftOut left;
    std::unordered_set<const SGObject*> told;
    for (MemoryObject* node : nodes) {
        SGShapeListPtr shapes = node->GetShapes();
        for (int32_t i = 0; i < shapes->GetCount(); ++i) {
            auto* shape = dynamic_cast<MemoryShape*>(shapes->GetItem(i).get());
            if (!shape) continue;
            const std::vector<VertexWeight> weights = shape->GetVertexWeights();
            std::vector<VertexWeight> kept;
            // Vertex by vertex (the weights come in vertex order).
            for (size_t first = 0, end; first < weights.size(); first = end) {
                double all = 0, within = 0;
                const size_t before = kept.size();
                for (end = first; end < weights.size() && weights[end].vertex == weights[first].vertex;
                     ++end) {
                    const VertexWeight& w = weights[end];
                    all += w.weight;
                    if (inside.count(w.bone.get())) {
                        within += w.weight;
                        kept.push_back(w);
                    } else if (told.insert(w.bone.get()).second) {
                        const auto* bone = dynamic_cast<const MemoryObject*>(w.bone.get());
                        left.bones.push_back(bone ? bone->shownName() : w.bone ? w.bone->GetName() : "?");
                    }
                }
                if (within == all || kept.size() == before || within == 0) continue;
                for (size_t k = before; k < kept.size(); ++k)
                    kept[k].weight = static_cast<float>(kept[k].weight * all / within);
                ++left.vertices;
            }
            if (kept.size() != weights.size()) shape->setWeights(kept);
        }
    }
    return left;
}

Matrix16 multiply(const Matrix16& a, const Matrix16& b) {
    Matrix16 r{};
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) {
            double s = 0;
            for (int k = 0; k < 4; ++k)
                s += double(a[i * 4 + k]) * b[k * 4 + j];
            r[i * 4 + j] = static_cast<float>(s);
        }
    return r;
}

bool mirrors(const Matrix16& m) {
    const double det = double(m[0]) * (double(m[5]) * m[10] - double(m[6]) * m[9]) -
                       double(m[1]) * (double(m[4]) * m[10] - double(m[6]) * m[8]) +
                       double(m[2]) * (double(m[4]) * m[9] - double(m[5]) * m[8]);
    return det < 0;
}

Matrix16 inverse(const Matrix16& m) {
    // Gauss-Jordan with partial pivoting, in double.
    double a[4][8];
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 8; ++j)
            a[i][j] = j < 4 ? m[i * 4 + j] : (j - 4 == i ? 1.0 : 0.0);
    for (int col = 0; col < 4; ++col) {
        int pivot = col;
        for (int r = col + 1; r < 4; ++r)
            if (std::fabs(a[r][col]) > std::fabs(a[pivot][col])) pivot = r;
        if (std::fabs(a[pivot][col]) < 1e-12)
            throw Failure(err::kDivisionByZero, "Singular transform matrix");
        if (pivot != col)
            for (int j = 0; j < 8; ++j)
                std::swap(a[pivot][j], a[col][j]);
        double d = a[col][col];
        for (int j = 0; j < 8; ++j)
            a[col][j] /= d;
        for (int r = 0; r < 4; ++r) {
            if (r == col) continue;
            double f = a[r][col];
            for (int j = 0; j < 8; ++j)
                a[r][j] -= f * a[col][j];
        }
    }
    Matrix16 r{};
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            r[i * 4 + j] = static_cast<float>(a[i][j + 4]);
    return r;
}

} // namespace tarnvale::scene
