// A reader of the text X files the exporter writes, written for the tests apart
// from the writers: frames, matrices, meshes, normals and skin weights, so that a
// test can judge the file as a reader would.
#pragma once

#include <array>
#include <cctype>
#include <cmath>
#include <regex>
#include <string>
#include <vector>

namespace tarnvale::test {

struct XMesh {
    std::vector<std::array<double, 3>> positions, normals;
    std::vector<std::vector<int>> faces, normalFaces;
    std::vector<int> faceMaterials;         // per face, from MeshMaterialList
    std::vector<std::array<double, 2>> uvs; // per vertex, from MeshTextureCoords
    // Per vertex: (bone, weight); empty without a MeshSkinWeights block.
    std::vector<std::vector<std::pair<std::string, double>>> weights;
};

struct XFrame {
    std::string name, link; // the frame's name, and its AnimLinkName
    std::string partData;   // its PartData's text, as the code page's bytes
    std::array<double, 16> matrix{};
    std::vector<XMesh> meshes;
    std::vector<XFrame> children;
};

class XReader {
  public:
    explicit XReader(const std::string& text) {
        // Words, numbers, quoted strings and braces; separators and comments go.
        const std::regex token(R"(//[^\n]*|"[^"]*"|[{}]|[^\s;,{}"]+)");
        std::vector<std::string> tokens;
        for (std::sregex_iterator i(text.begin(), text.end(), token), end; i != end; ++i)
            if (i->str().rfind("//", 0) != 0) tokens.push_back(i->str());
        size_t at = 0;
        root_ = block(tokens, at, "", "");
    }

    // The root frames of the file.
    std::vector<XFrame> frames() const {
        std::vector<XFrame> roots;
        for (const Block& b : root_.children)
            if (b.type == "Frame") roots.push_back(frame(b));
        return roots;
    }

  private:
    // A block of the file: its type, name, the data between its braces, its blocks.
    struct Block {
        std::string type, name;
        std::vector<std::string> data;
        std::vector<Block> children;
    };
    // Reads up to the "}" that closes the block (or to the end for the file).
    static Block block(const std::vector<std::string>& t, size_t& at, std::string type, std::string name) {
        Block b{std::move(type), std::move(name), {}, {}};
        auto is = [&](size_t i, const char* s) { return i < t.size() && t[i] == s; };
        while (at < t.size() && t[at] != "}") {
            const bool named =
                is(at + 2, "{") && std::isalpha(static_cast<unsigned char>(t[at][0])) && t[at + 1][0] != '"';
            if (is(at + 1, "{") || named) {
                size_t inside = at + (named ? 3 : 2);
                b.children.push_back(block(t, inside, t[at], named ? t[at + 1] : ""));
                at = inside + 1;
            } else {
                b.data.push_back(t[at++]);
            }
        }
        return b;
    }
    static XFrame frame(const Block& b) {
        XFrame f{b.name, {}, {}, {}, {}, {}};
        for (const Block& c : b.children) {
            if (c.type == "FrameTransformMatrix")
                for (size_t i = 0; i < 16; ++i)
                    f.matrix[i] = std::stod(c.data.at(i));
            if (c.type == "Mesh") f.meshes.push_back(mesh(c));
            if (c.type == "Frame") f.children.push_back(frame(c));
            if (c.type == "AnimLinkName") f.link = c.data.at(0).substr(1, c.data.at(0).size() - 2);
            if (c.type == "PartData") // its length, counting the closing 0, then the codes
                for (size_t i = 1; i < std::stoul(c.data.at(0)); ++i)
                    f.partData += static_cast<char>(std::stoi(c.data.at(i)));
        }
        return f;
    }
    // Counted vectors, then counted lists of indices, as Mesh and MeshNormals hold them.
    static void vectorsAndFaces(const Block& b, std::vector<std::array<double, 3>>& v,
                                std::vector<std::vector<int>>& f) {
        size_t at = 0;
        auto number = [&] { return std::stod(b.data.at(at++)); };
        v.resize(static_cast<size_t>(number()));
        for (auto& p : v)
            p = {number(), number(), number()};
        f.resize(static_cast<size_t>(number()));
        for (auto& face : f) {
            face.resize(static_cast<size_t>(number()));
            for (int& i : face)
                i = static_cast<int>(number());
        }
    }
    static XMesh mesh(const Block& b) {
        XMesh m;
        vectorsAndFaces(b, m.positions, m.faces);
        for (const Block& c : b.children) {
            if (c.type == "MeshNormals") vectorsAndFaces(c, m.normals, m.normalFaces);
            if (c.type == "MeshMaterialList")
                for (size_t i = 0; i < std::stoul(c.data.at(1)); ++i)
                    m.faceMaterials.push_back(std::stoi(c.data.at(2 + i)));
            if (c.type == "MeshTextureCoords")
                for (size_t i = 0; i < std::stoul(c.data.at(0)); ++i)
                    m.uvs.push_back({std::stod(c.data.at(1 + 2 * i)), std::stod(c.data.at(2 + 2 * i))});
            if (c.type != "MeshSkinWeights") continue;
            size_t at = 0;
            m.weights.resize(std::stoul(c.data.at(at++)));
            for (auto& w : m.weights) {
                w.resize(std::stoul(c.data.at(at++)));
                for (auto& [bone, weight] : w) {
                    bone = c.data.at(at).substr(1, c.data.at(at).size() - 2);
                    weight = std::stod(c.data.at(at + 1));
                    at += 2;
                }
            }
        }
        return m;
    }

    Block root_;
};

// A point through an X matrix (row vectors: the translation in the last row).
template <typename Matrix> std::array<double, 3> through(const std::array<double, 3>& p, const Matrix& m) {
    std::array<double, 3> out{};
    for (int c = 0; c < 3; ++c)
        out[c] = p[0] * m[c] + p[1] * m[4 + c] + p[2] * m[8 + c] + m[12 + c];
    return out;
}

// A frame's matrix in the world: its own, then its parent's world.
inline std::array<double, 16> worldOf(const XFrame& f, const std::array<double, 16>& parent) {
    std::array<double, 16> world{};
    for (int i = 0; i < 16; ++i)
        for (int k = 0; k < 4; ++k)
            world[i] += f.matrix[i / 4 * 4 + k] * parent[k * 4 + i % 4];
    return world;
}

inline constexpr std::array<double, 16> kIdentity = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

// Counts the triangles whose front face (clockwise, as the X file culls) looks
// away from their normal in the world. Corners and the tip of the normal at a
// corner go through the frames' matrices (row vectors) into the world, where the
// tip must lie on the side the front face looks to: an affine map keeps a point
// on its side of a plane, whatever it does to lengths and angles. Triangles
// without area are not counted.
inline void countFacesAgainstNormals(const XFrame& f, const std::array<double, 16>& parent, int& faces,
                                     int& wrong) {
    const std::array<double, 16> world = worldOf(f, parent);
    auto at = [&](const std::array<double, 3>& p) { return through(p, world); };
    for (const XMesh& mesh : f.meshes)
        for (size_t t = 0; t < mesh.faces.size(); ++t) {
            const auto &p = mesh.positions[mesh.faces[t][0]], &n = mesh.normals[mesh.normalFaces[t][0]];
            const auto a = at(p), b = at(mesh.positions[mesh.faces[t][1]]),
                       c = at(mesh.positions[mesh.faces[t][2]]),
                       tip = at({p[0] + n[0], p[1] + n[1], p[2] + n[2]});
            const double u[3] = {b[0] - a[0], b[1] - a[1], b[2] - a[2]},
                         v[3] = {c[0] - a[0], c[1] - a[1], c[2] - a[2]};
            const double along = (u[1] * v[2] - u[2] * v[1]) * (tip[0] - a[0]) +
                                 (u[2] * v[0] - u[0] * v[2]) * (tip[1] - a[1]) +
                                 (u[0] * v[1] - u[1] * v[0]) * (tip[2] - a[2]);
            const double area =
                std::hypot(u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2], u[0] * v[1] - u[1] * v[0]);
            if (area < 1e-12) continue; // a triangle with no area faces nowhere
            ++faces;
            if (along <= 0) ++wrong;
        }
    for (const XFrame& c : f.children)
        countFacesAgainstNormals(c, world, faces, wrong);
}

} // namespace tarnvale::test
