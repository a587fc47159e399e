// pExportFSX: the template copied line by line, with its tokens expanded.
#include "xfile/xfile.h"

#include <cctype>
#include <charconv>
#include <cmath>

namespace tarnvale::xfile {

namespace {

// The frames and polygons below a node, for the progress report.
double countWork(const SGObjectPtr& root) {
    double work = 0;
    walkDepthFirst(
        root,
        [&](const SGObjectPtr& node, int32_t, size_t) {
            work += 1;
            SGShapeListPtr shapes = node->GetShapes();
            for (int32_t i = 0, n = shapes->GetCount(); i < n; ++i) {
                SGShapePtr shape = shapes->GetItem(i);
                if (shape->GetGeometryKind() == kGeometryPolygonMesh) work += shape->GetPolygonCount();
            }
        },
        [](const SGObjectPtr&) {});
    return work;
}

// A node value as the 32-bit whole number it is read as (rounded half to even).
int32_t nodeValueAsLong(double v) {
    double r = std::nearbyint(v);
    if (!(r >= -2147483648.0 && r <= 2147483647.0)) throw Failure(err::kOverflow, "Overflow");
    return static_cast<int32_t>(r);
}

} // namespace

TokenScan pScanToken(const std::string& line) {
    TokenScan s;
    size_t first = line.find('#');
    if (first == std::string::npos) return s;
    s.firstHash = static_cast<int32_t>(first + 1);
    size_t second = line.find('#', first + 1);
    if (second == std::string::npos) return s;
    s.secondHash = static_cast<int32_t>(second + 1);
    s.token = line.substr(first + 1, second - first - 1);
    return s;
}

std::string XFileExporter::metreFactor(SGUnits& units) {
    int32_t code = f_.SceneGraph->GetDocument()->GetUnits();
    std::string text = units.ToMetres(1.0, code);
    float factor = 0;
    auto r = std::from_chars(text.data(), text.data() + text.size(), factor);
    if (r.ec != std::errc() || r.ptr != text.data() + text.size())
        throw Failure(err::kTypeMismatch, "Type mismatch: metre factor \"" + text + "\"");
    return pFormatNumber(factor);
}

void XFileExporter::pExportFSX(std::string& strOutputFile, SGObjectPtr& cgExportGroup) {
    if (!f_.SceneGraph) throw Failure(err::kObjectNotSet, "Object variable not set: no scene");
    if (!cgExportGroup) throw Failure(err::kObjectNotSet, "Object variable not set: no export group");
    SGUnitsPtr units = f_.SceneGraph->CreateUnits();
    f_.colObjectBones = ObjectBonesCollection();
    pFindSkins(cgExportGroup);
    if (f_.progress) workTotal_ = countWork(cgExportGroup);

    TextSink out;
    out.open(strOutputFile);
    platform::TextSource tmpl;
    tmpl.open(f_.strTemplateFile);

    std::string line;
    while (tmpl.readLine(line)) {
        TokenScan scan = pScanToken(line);
        const std::string& t = scan.token;
        bool known =
            t == "datetime" || t == "toM" || t == "hierarchy" || t == "guid" || t == "name" || t == "scene";
        if (!known) {
            out.writeRaw(line);
            out.endLine();
            continue;
        }
        if (t == "hierarchy") {
            pWriteHierarchy(cgExportGroup, out, 2);
            continue;
        }
        if (t == "scene") {
            writeScene(out, cgExportGroup);
            continue;
        }
        out.writeRaw(std::string_view(line).substr(0, scan.firstHash - 1));
        if (t == "datetime") {
            out.write(f_.clock.longDate());
            out.writeChar(' ');
            out.write(f_.clock.longTime());
        } else if (t == "toM") {
            out.writeRaw(metreFactor(*units));
        } else if (t == "guid") {
            out.write(f_.strGuid);
        } else if (t == "name") {
            out.write(pCleanName(f_.strFriendlyName));
        }
        out.writeRaw(std::string_view(line).substr(scan.secondHash));
        out.endLine();
    }
    tmpl.close();
    out.close();
}

void XFileExporter::reportProgress(double done) {
    if (f_.progress && workTotal_ > 0)
        f_.progress->report("Creating X file", std::min(1.0, done / workTotal_));
}

void XFileExporter::frameDone() {
    workDone_ += 1;
    reportProgress(workDone_);
}

void XFileExporter::meshProgress(int32_t polygons, double fraction) {
    if (fraction >= 1.0) {
        workDone_ += polygons;
        reportProgress(workDone_);
    } else {
        reportProgress(workDone_ + polygons * fraction);
    }
}

void XFileExporter::writeScene(TextSink& file, SGObjectPtr& cgExportGroup) {
    if (!platform::isLevelOfDetail(cgExportGroup->GetName())) {
        pWriteFrame(cgExportGroup, file);
        return;
    }
    SGObjectPtr parent = cgExportGroup->GetParent();
    if (!parent)
        throw Failure(err::kObjectNotSet,
                      "Object variable not set: " + cgExportGroup->GetName() + " has no parent");
    SGNodeListPtr children = parent->GetChildren();
    int32_t count = children->GetCount();
    for (int32_t i = 0; i < count; ++i) {
        SGObjectPtr child = children->GetItem(i);
        int32_t value = nodeValueAsLong(child->GetNodeValue());
        if (platform::isLevelOfDetail(child->GetName()) && value != 0) {
            cgExportGroup = child;
            pWriteFrame(child, file);
        }
    }
}

void XFileExporter::pWriteHierarchy(const SGObjectPtr& node, TextSink& file, int16_t depth) {
    walkDepthFirst(
        node,
        [&](const SGObjectPtr& n, int32_t count, size_t level) {
            // Each level indents by two more; the indent is a 16-bit number.
            const int64_t indent = depth + 2 * static_cast<int64_t>(level);
            if (indent > INT16_MAX) throw Failure(err::kOverflow, "Overflow");
            file.writeRaw("//");
            file.writeRaw(std::string(static_cast<size_t>(std::max<int64_t>(indent, 0)), ' '));
            file.write(pCleanName(n->GetName()));
            file.writeRaw(" (");
            file.writeRaw(paddedNumber(count));
            file.writeRaw(" Children)");
            file.endLine();
        },
        [](const SGObjectPtr&) {});
}

} // namespace tarnvale::xfile
