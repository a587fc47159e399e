// The scene's node tree from the document: nodes, their transforms, keys and
// names, the meshes on them and the skinned meshes once every joint stands.
#include "gltf/builder.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>

#include "platform/number_text.h"

namespace tarnvale::gltf {

using scene::mirrors;

namespace {

// The lengths of a transform's three axis rows where the X file's number form
// (six decimals) would lose more than 1e-4 of one: a quantized file's node scale
// that dequantizes its mesh (0.000003), which as written puts the model off.
std::optional<std::array<float, 3>> lossyScale(const Matrix16& m) {
    std::array<float, 3> lengths{};
    bool lossy = false;
    for (int r = 0; r < 3; ++r) {
        const double length = std::hypot(m[4 * r], m[4 * r + 1], m[4 * r + 2]);
        if (!(length > 0)) return std::nullopt;
        lengths[static_cast<size_t>(r)] = static_cast<float>(length);
        for (int c = 0; c < 3; ++c) {
            const double written = std::strtod(platform::formatMask(m[4 * r + c], 2, 6).c_str(), nullptr);
            lossy = lossy || std::abs(written - m[4 * r + c]) > 1e-4 * length;
        }
    }
    return lossy ? std::optional(lengths) : std::nullopt;
}

// A mesh's shapes with their vertices scaled per axis, normals the inverse way.
std::vector<std::shared_ptr<MemoryShape>>
scaledShapes(const std::vector<std::shared_ptr<MemoryShape>>& shapes, const std::array<float, 3>& s) {
    std::vector<std::shared_ptr<MemoryShape>> out;
    for (const auto& shape : shapes) {
        auto copy = std::make_shared<MemoryShape>(*shape);
        for (Vec3& p : copy->positions())
            p = {p.x * s[0], p.y * s[1], p.z * s[2]};
        for (Vec3& n : copy->normals()) {
            const Vec3 v{n.x / s[0], n.y / s[1], n.z / s[2]};
            const float length = std::sqrt(v.x * v.x + v.y * v.y + v.z * v.z);
            n = length > 0 ? Vec3{v.x / length, v.y / length, v.z / length} : n;
        }
        out.push_back(std::move(copy));
    }
    return out;
}

} // namespace

void Builder::build(const std::string& fallbackName, const std::string& folder) {
    int sceneIndex = model_.defaultScene >= 0 ? model_.defaultScene : (model_.scenes.empty() ? -1 : 0);
    if (sceneIndex >= static_cast<int>(model_.scenes.size()))
        throw SceneError("the default scene does not exist");
    std::string rootName = sceneIndex >= 0 && !model_.scenes[sceneIndex].name.empty()
                               ? model_.scenes[sceneIndex].name
                               : fallbackName;
    out_.scene = scene::MemoryScene::create(identifierName(rootName));
    out_.scene->root()->setSourceName(rootName);
    out_.scene->setUnits(scene::kMetres);
    materials_.emplace(model_, *out_.scene, options_, folder);

    for (size_t s = 0; s < model_.skins.size(); ++s)
        for (int j : model_.skins[s].joints) {
            checkNode(j, "skin " + std::to_string(s));
            joints_.insert(j);
        }
    keys_ = readAnimationKeys(model_, options_, out_.warnings);

    std::vector<int> roots;
    if (sceneIndex >= 0) {
        roots = model_.scenes[sceneIndex].nodes;
    } else {
        std::vector<bool> isChild(model_.nodes.size(), false);
        for (const auto& n : model_.nodes)
            for (int c : n.children)
                if (c >= 0 && static_cast<size_t>(c) < isChild.size()) isChild[c] = true;
        for (size_t i = 0; i < model_.nodes.size(); ++i)
            if (!isChild[i]) roots.push_back(static_cast<int>(i));
    }
    addTree(*out_.scene->root(), roots);
    for (const Skinned& s : skinned_)
        addSkinnedShape(s);
    materials_->collect(out_);
}

void Builder::addTree(MemoryObject& root, const std::vector<int>& roots) {
    // Depth first with a stack of its own, children in file order: a chain of any
    // length costs no call depth.
    visited_.assign(model_.nodes.size(), false);
    objects_.assign(model_.nodes.size(), nullptr);
    std::vector<Pending> stack;
    for (auto it = roots.rbegin(); it != roots.rend(); ++it) {
        checkNode(*it, "the scene");
        stack.push_back({&root, *it, false, 1});
    }
    while (!stack.empty()) {
        const Pending p = stack.back();
        stack.pop_back();
        if (p.depth > kMaxNodeDepth)
            throw SceneError("its node tree is deeper than " + std::to_string(kMaxNodeDepth) + " levels");
        bool worldMirrors = false;
        std::shared_ptr<MemoryObject> obj = addNode(p, worldMirrors);
        const std::vector<int>& children = model_.nodes[p.index].children;
        for (auto it = children.rbegin(); it != children.rend(); ++it) {
            checkNode(*it, "node " + std::to_string(p.index));
            stack.push_back({obj.get(), *it, worldMirrors, p.depth + 1});
        }
    }
}

std::shared_ptr<MemoryObject> Builder::addNode(const Pending& p, bool& worldMirrors) {
    const int index = p.index;
    if (visited_[index])
        throw SceneError("node " + std::to_string(index) + " appears twice in the hierarchy");
    visited_[index] = true;
    const tinygltf::Node& n = model_.nodes[index];
    const std::string name = nodeName(model_, index);
    auto obj = p.parent->addChild(siblingNames_[p.parent].take(identifierName(name)));
    obj->setSourceName(name);
    objects_[index] = obj.get();

    Matrix16 m{};
    const auto keyed = keys_.find(index);
    if (n.matrix.size() == 16) {
        // Column-major glTF storage is the row-vector order of the X format.
        for (int i = 0; i < 16; ++i)
            m[i] = static_cast<float>(n.matrix[i]);
    } else if (keyed != keys_.end()) {
        // An animated part stands where its animation starts, as a modeller shows
        // it: its keys are written relative to that pose, and skins follow it.
        const NodeKeys& k = keyed->second;
        m = composeTrs(
            k.translation ? std::vector<double>(k.translation->begin(), k.translation->end()) : n.translation,
            k.rotation ? std::vector<double>(k.rotation->begin(), k.rotation->end()) : n.rotation, n.scale);
    } else {
        m = composeTrs(n.translation, n.rotation, n.scale);
    }
    for (float v : m)
        if (!std::isfinite(v))
            throw SceneError("node " + std::to_string(index) + " has a transform that is not finite");
    worldMirrors = p.parentMirrors != mirrors(m);
    Matrix16 x = mirrorX(m);
    // Below a node whose scale went into its mesh, the scale the node no longer has.
    if (auto moved = movedScale_.find(p.parent); moved != movedScale_.end())
        for (int r = 0; r < 4; ++r)
            for (int c = 0; c < 3; ++c)
                x[4 * r + c] *= moved->second[static_cast<size_t>(c)];
    // A scale the file's number form cannot hold goes into the node's own mesh, so
    // that every vertex stays where glTF puts it (an instancing node's copies take it
    // on as children do; not with keys or skins, nor above a keyed child, whose keys
    // are in the scaled frame).

    std::optional<std::array<float, 3>> moveScale;
    if (n.mesh >= 0 && n.skin < 0 && keyed == keys_.end() &&
        std::none_of(n.children.begin(), n.children.end(), [&](int c) { return keys_.count(c) > 0; }))
        moveScale = lossyScale(x);
    if (moveScale) {
        for (int r = 0; r < 3; ++r)
            for (int c = 0; c < 3; ++c)
                x[4 * r + c] /= (*moveScale)[static_cast<size_t>(r)];
        movedScale_[obj.get()] = *moveScale;
    }
    obj->setMatrix(x);

    bool visible = true;
    if (auto it = n.extensions.find("KHR_node_visibility"); it != n.extensions.end()) {
        const tinygltf::Value& v = it->second;
        if (v.IsObject() && v.Has("visible") && v.Get("visible").IsBool() && !v.Get("visible").Get<bool>())
            visible = false;
    }
    // A modeller that keeps no booleans in custom properties (Blender) writes 0.
    if (const tinygltf::Value& v =
            n.extras.IsObject() && n.extras.Has("visible") ? n.extras.Get("visible") : tinygltf::Value();
        (v.IsBool() && !v.Get<bool>()) || (v.IsNumber() && v.GetNumberAsDouble() == 0))
        visible = false;
    obj->setNodeValue(visible ? 1 : 0);
    if (n.extras.IsObject())
        for (const std::string& key : n.extras.Keys())
            if (const tinygltf::Value& v = n.extras.Get(key); v.IsString())
                obj->setFieldText(out_.scene->fields().addObject(key), v.Get<std::string>());

    if (n.mesh >= 0) {
        if (static_cast<size_t>(n.mesh) >= model_.meshes.size())
            throw SceneError("node " + std::to_string(index) + " names mesh " + std::to_string(n.mesh) +
                             ", which does not exist");
        if (auto it = n.extensions.find("EXT_mesh_gpu_instancing"); it != n.extensions.end())
            addInstances(*obj, index, it->second, worldMirrors);
        else if (n.skin >= 0 && static_cast<size_t>(n.skin) < model_.skins.size())
            skinned_.push_back({obj.get(), n.mesh, n.skin});
        else if (options_.outline)
            out_.outlines[obj.get()] = meshOutline(n.mesh);
        else
            for (const auto& shape : moveScale ? scaledShapes(meshShapes(n.mesh, worldMirrors), *moveScale)
                                               : meshShapes(n.mesh, worldMirrors))
                obj->addShapeLast(shape);
    }
    if (joints_.count(index))
        obj->addShapeLast(std::make_shared<MemoryShape>(scene::kGeometryOther, kTypeCodeBone));
    if (keyed != keys_.end()) obj->setKeyframes(std::move(keyed->second.keys));
    return obj;
}

void Builder::addInstances(MemoryObject& obj, int index, const tinygltf::Value& extension,
                           bool worldMirrors) {
    const tinygltf::Node& n = model_.nodes[static_cast<size_t>(index)];
    const std::string what = "node " + std::to_string(index) + " EXT_mesh_gpu_instancing";
    if (n.skin >= 0) throw SceneError(what + ": a skinned mesh cannot be instanced");
    const tinygltf::Value& attributes = extension.Get("attributes");
    if (!attributes.IsObject()) throw SceneError(what + " has no attributes");
    // TRANSLATION, ROTATION and SCALE, each of the same count where given.
    std::optional<AccessorView> trs[3];
    const char* names[3] = {"TRANSLATION", "ROTATION", "SCALE"};
    size_t count = 0;
    for (int k = 0; k < 3; ++k) {
        const tinygltf::Value& a = attributes.Get(names[k]);
        if (!a.IsNumber()) continue;
        trs[k].emplace(model_, a.GetNumberAsInt(), what + " " + names[k]);
        if (trs[k]->components() != (k == 1 ? 4 : 3) || (count && trs[k]->count() != count))
            throw SceneError(what + " " + names[k] + " does not match the other attributes");
        count = trs[k]->count();
    }
    const std::string name = nodeName(model_, index);
    for (size_t i = 0; i < count; ++i) {
        std::vector<double> v[3] = {{0, 0, 0}, {0, 0, 0, 1}, {1, 1, 1}};
        for (int k = 0; k < 3; ++k)
            for (size_t c = 0; trs[k] && c < v[k].size(); ++c)
                v[k][c] = trs[k]->component(i, static_cast<int>(c));
        const Matrix16 m = composeTrs(v[0], v[1], v[2]);
        for (float x : m)
            if (!std::isfinite(x)) throw SceneError(what + " has an instance whose transform is not finite");
        // Where the node's scale went into its copies, as its children's goes.
        Matrix16 x = mirrorX(m);
        if (auto moved = movedScale_.find(&obj); moved != movedScale_.end())
            for (int r = 0; r < 4; ++r)
                for (int c = 0; c < 3; ++c)
                    x[4 * r + c] *= moved->second[static_cast<size_t>(c)];
        const auto scale = lossyScale(x);
        for (int r = 0; scale && r < 3; ++r)
            for (int c = 0; c < 3; ++c)
                x[4 * r + c] /= (*scale)[static_cast<size_t>(r)];
        // Each copy a node of its own below the instancing one: its world is the node's times the instance's.
        const std::string copyName = name + "_" + std::to_string(i);
        auto copy = obj.addChild(siblingNames_[&obj].take(identifierName(copyName)));
        copy->setSourceName(copyName);
        copy->setMatrix(x);
        copy->setNodeValue(obj.GetNodeValue());
        if (options_.outline)
            out_.outlines[copy.get()] = meshOutline(n.mesh);
        else
            for (const auto& shape :
                 scale ? scaledShapes(meshShapes(n.mesh, worldMirrors != mirrors(m)), *scale)
                       : meshShapes(n.mesh, worldMirrors != mirrors(m)))
                copy->addShapeLast(shape);
    }
}

void Builder::addSkinnedShape(const Skinned& s) {
    const tinygltf::Skin& skin = model_.skins[static_cast<size_t>(s.skin)];
    const std::string what = "skin " + std::to_string(s.skin);
    // Per joint, from the mesh's bind space into its node's frame as the skin
    // places it at rest: inverse bind matrix, joint's world, node's world undone.
    std::optional<AccessorView> ibm;
    if (skin.inverseBindMatrices >= 0) {
        ibm.emplace(model_, skin.inverseBindMatrices, what + " inverse bind matrices");
        if (ibm->components() != 16 || ibm->count() < skin.joints.size())
            throw SceneError(what + " inverse bind matrices do not match its joints");
    }
    Matrix16 nodeInverse;
    try {
        nodeInverse = scene::inverse(s.node->GetRelativeMatrix(nullptr, 0));
    } catch (const Failure&) {
        throw SceneError("the node of " + what + " has a transform without an inverse");
    }
    std::vector<Matrix16> toNode;
    Matrix16 bindToWorld{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    for (size_t j = 0; j < skin.joints.size(); ++j) {
        checkNode(skin.joints[j], what);
        Matrix16 b{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
        if (ibm)
            for (int i = 0; i < 16; ++i)
                b[i] = ibm->component(j, i);
        for (float v : b)
            if (!std::isfinite(v)) throw SceneError(what + " has an inverse bind matrix that is not finite");
        MemoryObject* joint = objects_[static_cast<size_t>(skin.joints[j])];
        // A joint outside the scene's tree stands where the mesh's node does.
        const Matrix16 world =
            scene::multiply(mirrorX(b), (joint ? joint : s.node)->GetRelativeMatrix(nullptr, 0));
        if (j == 0) bindToWorld = world;
        toNode.push_back(scene::multiply(world, nodeInverse));
    }
    // Where the skin's rest places it mirrors, glTF counts its triangles clockwise.
    auto shape = std::make_shared<MemoryShape>();
    std::vector<int32_t> normalVertex;
    std::vector<VertexWeight> weights;
    std::vector<size_t> jointOf; // of each weight
    for (size_t p = 0; p < model_.meshes[s.mesh].primitives.size(); ++p) {
        const size_t base = shape->positions().size();
        if (!appendPrimitive(*shape, s.mesh, p, mirrors(bindToWorld), normalVertex)) continue;
        readWeights(model_.meshes[s.mesh].primitives[p], skin, base, shape->positions().size() - base, what,
                    weights, jointOf);
    }
    placeSkinnedVertices(*shape, weights, jointOf, toNode, normalVertex);
    shape->setWeights(weights);
    s.node->addShapeFirst(shape);
}

void buildScene(const Document& model, LoadedScene& out, const ReadOptions& options,
                const std::string& fallbackName, const std::string& folder) {
    Builder(model, out, options).build(fallbackName, folder);
}

} // namespace tarnvale::gltf
