// A reader of the text X files the exporter writes, written for the tests apart
// from the writers: frames, matrices, meshes, normals and skin weights, so that a
// test can judge the file as a reader would.
#pragma once

#include <array>
#include <cctype>
#include <stdexcept>
#include <string>
#include <vector>

namespace tarnvale::test {

struct XMesh {
    std::vector<std::array<double, 3>> positions, normals;
    std::vector<std::vector<int>> faces, normalFaces;
    // Per vertex: (bone, weight); empty without a MeshSkinWeights block.
    std::vector<std::vector<std::pair<std::string, double>>> weights;
};

struct XFrame {
    std::string name;
    std::array<double, 16> matrix{};
    std::vector<XMesh> meshes;
    std::vector<XFrame> children;
};

class XReader {
public:
    explicit XReader(const std::string& text) {
        for (size_t i = 0; i < text.size();) {
            const char c = text[i];
            if (std::isspace(static_cast<unsigned char>(c)) || c == ';' || c == ',') {
                ++i;
            } else if (c == '/' && i + 1 < text.size() && text[i + 1] == '/') {
                i = text.find('\n', i);
            } else if (c == '{' || c == '}') {
                tokens_.emplace_back(1, c), ++i;
            } else if (c == '"') {
                const size_t end = text.find('"', i + 1);
                tokens_.push_back(text.substr(i, end - i + 1));
                i = end + 1;
            } else {
                size_t end = i;
                while (end < text.size() && !std::isspace(static_cast<unsigned char>(text[end])) &&
                       std::string(";,{}\"").find(text[end]) == std::string::npos)
                    ++end;
                tokens_.push_back(text.substr(i, end - i));
                i = end;
            }
        }
    }

    // The root frames of the file.
    std::vector<XFrame> frames() {
        std::vector<XFrame> roots;
        while (at_ < tokens_.size()) {
            if (tokens_[at_] == "Frame") roots.push_back(frame());
            else if (tokens_[at_] == "{") skipBlock();
            else ++at_;
        }
        return roots;
    }

private:
    const std::string& next() {
        if (at_ >= tokens_.size()) throw std::runtime_error("X file ends early");
        return tokens_[at_++];
    }
    double number() { return std::stod(next()); }
    void expect(const std::string& t) {
        if (next() != t) throw std::runtime_error("X file: expected " + t + " before token " + std::to_string(at_));
    }
    // Skips the block whose "{" is the next token.
    void skipBlock() {
        expect("{");
        for (int depth = 1; depth > 0;) {
            const std::string& t = next();
            depth += t == "{" ? 1 : t == "}" ? -1 : 0;
        }
    }
    std::vector<std::vector<int>> faceList() {
        std::vector<std::vector<int>> faces(static_cast<size_t>(number()));
        for (auto& f : faces) {
            f.resize(static_cast<size_t>(number()));
            for (int& v : f) v = static_cast<int>(number());
        }
        return faces;
    }
    std::vector<std::array<double, 3>> vectors() {
        std::vector<std::array<double, 3>> v(static_cast<size_t>(number()));
        for (auto& p : v) p = {number(), number(), number()};
        return v;
    }
    XFrame frame() {
        expect("Frame");
        XFrame f;
        f.name = next();
        expect("{");
        while (tokens_[at_] != "}") {
            const std::string type = next();
            if (type == "Frame") {
                --at_;
                f.children.push_back(frame());
            } else if (type == "FrameTransformMatrix") {
                expect("{");
                for (double& m : f.matrix) m = number();
                expect("}");
            } else if (type == "Mesh") {
                f.meshes.push_back(mesh());
            } else {
                skipBlock();
            }
        }
        expect("}");
        return f;
    }
    XMesh mesh() {
        XMesh m;
        next(); // its name
        expect("{");
        m.positions = vectors();
        m.faces = faceList();
        while (tokens_[at_] != "}") {
            const std::string type = next();
            if (type == "MeshNormals") {
                expect("{");
                m.normals = vectors();
                m.normalFaces = faceList();
                expect("}");
            } else if (type == "MeshSkinWeights") {
                expect("{");
                m.weights.resize(static_cast<size_t>(number()));
                for (auto& w : m.weights) {
                    w.resize(static_cast<size_t>(number()));
                    for (auto& [bone, weight] : w) {
                        bone = next();
                        bone = bone.substr(1, bone.size() - 2);
                        weight = number();
                    }
                }
                expect("}");
            } else {
                skipBlock();
            }
        }
        expect("}");
        return m;
    }

    std::vector<std::string> tokens_;
    size_t at_ = 0;
};

} // namespace tarnvale::test
