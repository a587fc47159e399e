// Reads text X files through the DirectX file API (d3dxof), the way a
// DirectX-based compiler reads them: the standard templates and the file's own
// declarations are registered, then every data object is walked and its data
// fetched. Usage: dxreader FILE-OR-FOLDER... (a folder: every .x file in it).
// Exit 0 when every file was read whole, 1 when one was not (the file, the
// object, its line and the reader's error are printed), 2 on a bad call.
//
// Wine's d3dxof has gaps that the simulator's reader does not share. Each is
// bridged in a copy of the file, never in the file itself:
// - it knows no BYTE member type: the copy declares DWORD in its place;
// - it reads no number without a digit before the point, nor a whole number into
//   a FLOAT member, so AlphaData's threshold (" .1 ", " 1 ") reads "0.1", "1.0";
// - it takes at most 200 children, 2000 sub-objects and 10000 bytes of strings
//   per top-level object, and 500 top-level objects: the copy holds each data
//   object as a top-level object of its own, a skin-weights block split where
//   its bone names pass the string limit, and is read in parts.
// Everything else goes to the reader as the file has it.
#define INITGUID
#include <windows.h>
// dxfile.h wants windows.h ahead of it.
#include <dxfile.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

// The standard templates our files use, as DirectX declares them.
const char kStandardTemplates[] = R"(xof 0303txt 0032
template Vector { <3D82AB5E-62DA-11cf-AB39-0020AF71E433> FLOAT x; FLOAT y; FLOAT z; }
template Coords2d { <F6F23F44-7686-11cf-8F52-0040333594A3> FLOAT u; FLOAT v; }
template Matrix4x4 { <F6F23F45-7686-11cf-8F52-0040333594A3> array FLOAT matrix[16]; }
template ColorRGBA { <35FF44E0-6C7C-11cf-8F52-0040333594A3> FLOAT red; FLOAT green; FLOAT blue; FLOAT alpha; }
template ColorRGB { <D3E16E81-7835-11cf-8F52-0040333594A3> FLOAT red; FLOAT green; FLOAT blue; }
template Boolean { <4885AE61-78E8-11cf-8F52-0040333594A3> WORD truefalse; }
template TextureFilename { <A42790E1-7810-11cf-8F52-0040333594A3> STRING filename; }
template Material { <3D82AB4D-62DA-11cf-AB39-0020AF71E433>
 ColorRGBA faceColor; FLOAT power; ColorRGB specularColor; ColorRGB emissiveColor; [...] }
template MeshFace { <3D82AB5F-62DA-11cf-AB39-0020AF71E433>
 DWORD nFaceVertexIndices; array DWORD faceVertexIndices[nFaceVertexIndices]; }
template MeshTextureCoords { <F6F23F40-7686-11cf-8F52-0040333594A3>
 DWORD nTextureCoords; array Coords2d textureCoords[nTextureCoords]; }
template MeshMaterialList { <F6F23F42-7686-11cf-8F52-0040333594A3>
 DWORD nMaterials; DWORD nFaceIndexes; array DWORD faceIndexes[nFaceIndexes];
 [Material <3D82AB4D-62DA-11cf-AB39-0020AF71E433>] }
template MeshNormals { <F6F23F43-7686-11cf-8F52-0040333594A3>
 DWORD nNormals; array Vector normals[nNormals]; DWORD nFaceNormals; array MeshFace faceNormals[nFaceNormals]; }
template Mesh { <3D82AB44-62DA-11cf-AB39-0020AF71E433>
 DWORD nVertices; array Vector vertices[nVertices]; DWORD nFaces; array MeshFace faces[nFaces]; [...] }
template FrameTransformMatrix { <F6F23F41-7686-11cf-8F52-0040333594A3> Matrix4x4 frameMatrix; }
template Frame { <3D82AB46-62DA-11cf-AB39-0020AF71E433> [...] }
)";
constexpr char kHeader[] = "xof 0303txt 0032\r\n";
constexpr size_t kPiecesPerRead = 400;        // below the 500 top-level objects
constexpr size_t kStringBytesPerPiece = 9000; // below the 10000 bytes of strings

struct Token {
    enum Kind { Word, String, Operator } kind;
    size_t begin, end;
};

// A data object of the copy: its own text, its nested objects cut out.
struct Piece {
    std::string type, name;
    size_t begin = 0, end = 0, line = 0;
    std::vector<std::pair<size_t, size_t>> cuts;         // nested objects
    std::vector<std::pair<size_t, std::string>> changes; // token index -> text
    std::vector<size_t> values;                          // its own word and string tokens
};

class Copy {
  public:
    explicit Copy(std::string text) : text_(std::move(text)) {}

    // Splits the file into template declarations and pieces; false with `error`.
    bool split(std::string& error);
    const std::string& declarations() const { return declarations_; }
    // The pieces as X texts of at most kPiecesPerRead objects each, with the
    // piece that each object comes from.
    struct Read {
        std::string text;
        std::vector<size_t> pieces;
    };
    std::vector<Read> reads() const;
    const Piece& piece(size_t i) const { return pieces_[i]; }

  private:
    bool lex(std::string& error);
    std::string tokenText(size_t t) const {
        return text_.substr(tokens_[t].begin, tokens_[t].end - tokens_[t].begin);
    }
    bool isOperator(size_t t, char c) const {
        return t < tokens_.size() && tokens_[t].kind == Token::Operator && text_[tokens_[t].begin] == c;
    }
    void normaliseThreshold(Piece& p);
    std::string textOf(const Piece& p) const;
    // A skin-weights piece as several whose bone names fit the string limit.
    std::vector<std::string> splitSkin(const Piece& p) const;

    std::string text_, declarations_ = kHeader;
    std::vector<Token> tokens_;
    std::vector<Piece> pieces_;
};

bool Copy::lex(std::string& error) {
    auto isSpace = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\0'; };
    const std::string operators = "{}[]()<>,;";
    for (size_t i = sizeof kHeader - 3; i < text_.size();) {
        const char c = text_[i];
        if (isSpace(c)) {
            ++i;
        } else if (c == '#' || text_.compare(i, 2, "//") == 0) {
            i = text_.find('\n', i);
            if (i == std::string::npos) i = text_.size();
        } else if (c == '"') {
            const size_t close = text_.find('"', i + 1);
            if (close == std::string::npos) return error = "a string is not closed", false;
            tokens_.push_back({Token::String, i, close + 1});
            i = close + 1;
        } else if (operators.find(c) != std::string::npos) {
            tokens_.push_back({Token::Operator, i, i + 1});
            ++i;
        } else {
            const size_t start = i;
            while (i < text_.size() && !isSpace(text_[i]) && operators.find(text_[i]) == std::string::npos &&
                   text_[i] != '"')
                ++i;
            tokens_.push_back({Token::Word, start, i});
        }
    }
    return true;
}

bool Copy::split(std::string& error) {
    if (text_.compare(0, 16, "xof 0303txt 0032") != 0) return error = "no text X file header", false;
    if (!lex(error)) return false;
    std::vector<size_t> open; // pieces not yet closed, innermost last
    for (size_t t = 0; t < tokens_.size();) {
        const bool word = tokens_[t].kind == Token::Word;
        if (open.empty() && word && tokenText(t) == "template") {
            size_t close = t;
            while (close < tokens_.size() && !isOperator(close, '}'))
                ++close;
            if (close == tokens_.size()) return error = "a template is not closed", false;
            size_t at = tokens_[t].begin;
            for (size_t k = t; k <= close; ++k)
                if (tokenText(k) == "BYTE")
                    declarations_.append(text_, at, tokens_[k].begin - at).append("DWORD"),
                        at = tokens_[k].end;
            declarations_.append(text_, at, tokens_[close].end - at).append("\r\n");
            t = close + 1;
        } else if (word &&
                   (isOperator(t + 1, '{') || (t + 1 < tokens_.size() && tokens_[t + 1].kind == Token::Word &&
                                               isOperator(t + 2, '{')))) {
            Piece p;
            p.type = tokenText(t);
            p.name = isOperator(t + 1, '{') ? "" : tokenText(t + 1);
            p.begin = tokens_[t].begin;
            p.line = 1 + static_cast<size_t>(std::count(text_.begin(), text_.begin() + p.begin, '\n'));
            open.push_back(pieces_.size());
            pieces_.push_back(std::move(p));
            t += pieces_.back().name.empty() ? 2 : 3;
        } else if (isOperator(t, '}') && !open.empty()) {
            Piece& p = pieces_[open.back()];
            p.end = tokens_[t].end;
            if (p.type == "AlphaData") normaliseThreshold(p);
            open.pop_back();
            if (!open.empty()) pieces_[open.back()].cuts.push_back({p.begin, p.end});
            ++t;
        } else if (!open.empty()) {
            if (tokens_[t].kind != Token::Operator) pieces_[open.back()].values.push_back(t);
            ++t;
        } else {
            return error =
                       "line " +
                       std::to_string(std::count(text_.begin(), text_.begin() + tokens_[t].begin, '\n') + 1) +
                       ": \"" + tokenText(t) + "\" stands outside any object",
                   false;
        }
    }
    if (!open.empty())
        return error = pieces_[open.back()].type + " at line " + std::to_string(pieces_[open.back()].line) +
                       " is not closed",
               false;
    return true;
}

void Copy::normaliseThreshold(Piece& p) {
    if (p.values.size() < 2) return;
    std::string number = tokenText(p.values[1]);
    if (number.find('.') == std::string::npos) number += ".0";
    const size_t point = number.find('.');
    if (point == 0 || (point == 1 && number[0] == '-')) number.insert(point, "0");
    p.changes.push_back({p.values[1], number});
}

std::string Copy::textOf(const Piece& p) const {
    std::string out;
    size_t at = p.begin, change = 0;
    auto copyUpTo = [&](size_t end) {
        for (; change < p.changes.size() && tokens_[p.changes[change].first].begin < end; ++change) {
            const Token& tok = tokens_[p.changes[change].first];
            out.append(text_, at, tok.begin - at).append(p.changes[change].second);
            at = tok.end;
        }
        out.append(text_, at, end - at);
    };
    for (const auto& [begin, end] : p.cuts) {
        copyUpTo(begin);
        at = end;
    }
    copyUpTo(p.end);
    return out + "\r\n";
}

std::vector<std::string> Copy::splitSkin(const Piece& p) const {
    size_t bytes = 0;
    for (size_t v : p.values)
        if (tokens_[v].kind == Token::String) bytes += tokens_[v].end - tokens_[v].begin - 1;
    if (p.type != "MeshSkinWeights" || bytes <= kStringBytesPerPiece) return {textOf(p)};
    // The vertex count, then per vertex its weight count and (bone, weight) pairs.
    // Anything else, a count that disagrees included, goes to the reader whole,
    // to be refused there.
    auto number = [&](size_t v) {
        return tokenText(p.values[v]).find_first_not_of("0123456789 ") == std::string::npos
                   ? std::stoul(tokenText(p.values[v]))
                   : ~0ul;
    };
    std::vector<std::string> parts;
    std::string groups;
    size_t count = 0, total = 0, partBytes = 0, v = 1;
    auto flush = [&] {
        parts.push_back("MeshSkinWeights {\r\n" + std::to_string(count) + ";\r\n" + groups + "}\r\n");
        groups.clear(), count = 0, partBytes = 0;
    };
    while (v < p.values.size()) {
        const size_t weights = number(v), last = v + 2 * weights;
        if (weights == ~0ul || last >= p.values.size()) return {textOf(p)};
        size_t groupBytes = 0;
        for (size_t w = v + 1; w <= last; w += 2)
            groupBytes += tokens_[p.values[w]].end - tokens_[p.values[w]].begin - 1;
        if (count > 0 && partBytes + groupBytes > kStringBytesPerPiece) flush();
        groups += text_.substr(tokens_[p.values[v]].begin,
                               tokens_[p.values[last]].end - tokens_[p.values[v]].begin) +
                  ";\r\n";
        ++count, ++total, partBytes += groupBytes;
        v = last + 1;
    }
    if (total != number(0)) return {textOf(p)};
    flush();
    return parts;
}

std::vector<Copy::Read> Copy::reads() const {
    std::vector<Read> reads;
    for (size_t p = 0; p < pieces_.size(); ++p)
        for (const std::string& text : splitSkin(pieces_[p])) {
            if (reads.empty() || reads.back().pieces.size() == kPiecesPerRead) reads.push_back({kHeader, {}});
            reads.back().text += text;
            reads.back().pieces.push_back(p);
        }
    return reads;
}

std::string hresultText(HRESULT hr) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08lX", static_cast<unsigned long>(hr));
    switch (hr) {
    case DXFILEERR_PARSEERROR:
        return std::string("parse error (") + text + ")";
    case DXFILEERR_BADOBJECT:
        return std::string("bad object (") + text + ")";
    case DXFILEERR_BADVALUE:
        return std::string("bad value (") + text + ")";
    default:
        return text;
    }
}

// Fetches an object's data and walks its children; false with `error`.
bool walk(IDirectXFileData* data, std::string& error) {
    char name[512];
    DWORD nameSize = sizeof name, size = 0;
    void* bytes = nullptr;
    const GUID* type = nullptr;
    HRESULT hr = data->GetName(name, &nameSize);
    if (SUCCEEDED(hr)) hr = data->GetType(&type);
    if (SUCCEEDED(hr)) hr = data->GetData(nullptr, &size, &bytes);
    if (FAILED(hr)) return error = hresultText(hr), false;
    for (;;) {
        IDirectXFileObject* child = nullptr;
        hr = data->GetNextObject(&child);
        if (hr == DXFILEERR_NOMOREOBJECTS) return true;
        if (FAILED(hr)) return error = "a child of " + std::string(name) + ": " + hresultText(hr), false;
        IDirectXFileData* childData = nullptr;
        IDirectXFileDataReference* reference = nullptr;
        bool ok = true;
        if (SUCCEEDED(child->QueryInterface(IID_IDirectXFileData, reinterpret_cast<void**>(&childData)))) {
            ok = walk(childData, error);
            childData->Release();
        } else if (SUCCEEDED(child->QueryInterface(IID_IDirectXFileDataReference,
                                                   reinterpret_cast<void**>(&reference)))) {
            IDirectXFileData* target = nullptr;
            hr = reference->Resolve(&target);
            ok = SUCCEEDED(hr) ||
                 (error = "a reference in " + std::string(name) + ": " + hresultText(hr), false);
            if (target) target->Release();
            reference->Release();
        }
        child->Release();
        if (!ok) return false;
    }
}

// Reads one file whole; false with `error`.
bool readFile(const std::filesystem::path& path, std::string& error) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream bytes;
    bytes << in.rdbuf();
    if (!in) return error = "cannot read the file", false;
    Copy copy(bytes.str());
    if (!copy.split(error)) return false;
    IDirectXFile* file = nullptr;
    if (FAILED(DirectXFileCreate(&file))) return error = "DirectXFileCreate failed", false;
    std::string standard = kStandardTemplates, own = copy.declarations();
    HRESULT hr = file->RegisterTemplates(standard.data(), static_cast<DWORD>(standard.size()));
    if (SUCCEEDED(hr)) hr = file->RegisterTemplates(own.data(), static_cast<DWORD>(own.size()));
    if (FAILED(hr)) error = "its template declarations: " + hresultText(hr);
    for (Copy::Read& read : SUCCEEDED(hr) ? copy.reads() : std::vector<Copy::Read>{}) {
        DXFILELOADMEMORY memory{read.text.data(), static_cast<DWORD>(read.text.size())};
        IDirectXFileEnumObject* objects = nullptr;
        hr = file->CreateEnumObject(&memory, DXFILELOAD_FROMMEMORY, &objects);
        size_t object = 0;
        for (; SUCCEEDED(hr) && error.empty(); ++object) {
            IDirectXFileData* data = nullptr;
            hr = objects->GetNextDataObject(&data);
            if (SUCCEEDED(hr)) walk(data, error), data->Release();
        }
        if (objects) objects->Release();
        if (hr != DXFILEERR_NOMOREOBJECTS && error.empty()) error = hresultText(hr);
        if (!error.empty()) {
            const Piece& p =
                copy.piece(read.pieces[std::min(object > 0 ? object - 1 : 0, read.pieces.size() - 1)]);
            error = p.type + (p.name.empty() ? "" : " " + p.name) + " at line " + std::to_string(p.line) +
                    ": " + error;
            break;
        }
    }
    file->Release();
    return error.empty();
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: dxreader FILE-OR-FOLDER...\n");
        return 2;
    }
    std::vector<std::filesystem::path> files;
    for (int i = 1; i < argc; ++i) {
        const std::filesystem::path path(argv[i]);
        if (!std::filesystem::is_directory(path))
            files.push_back(path);
        else
            for (const auto& entry : std::filesystem::directory_iterator(path))
                if (entry.path().extension() == ".x") files.push_back(entry.path());
    }
    if (files.empty()) {
        std::printf("dxreader: no X files to read\n");
        return 1;
    }
    size_t failed = 0;
    for (const auto& path : files) {
        std::string error;
        if (!readFile(path, error)) {
            std::printf("%s: %s\n", path.string().c_str(), error.c_str());
            ++failed;
        }
    }
    std::printf("dxreader: %zu of %zu X files read whole\n", files.size() - failed, files.size());
    return failed ? 1 : 0;
}
