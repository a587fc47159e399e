// X file generation: the template expander and the frame writer, with the number
// forms and the name cleaner that the other writers share.
#pragma once

#include "host/host.h"
#include "platform/platform.h"

#include <functional>
#include <string>

namespace tarnvale::xfile {

using platform::TextSink;

// ---- Number forms and names ------------------------------------------------------

// Longest text of pFormatNumber.
inline constexpr size_t kMaxNumberText = 64;

// A 32-bit float by the mask "0.00####": taken at seven significant digits, rounded
// to six decimals half away from zero, two to six decimals, "." in every locale, no
// exponent, "-" ahead of a negative value. Fails with Overflow on NaN or infinity.
std::string pFormatNumber(float value);
// The same into out (at least kMaxNumberText bytes); gives the end.
char* formatNumberTo(float value, char* out);
// The same from the exact decimal expansion alone: slow, the reference for tests.
std::string formatNumberReference(float value);
// Decimal digits with "-" ahead of a negative value: 42 -> "42".
std::string plainNumber(int64_t value);
// A blank (or "-") ahead, the digits, one blank behind: 42 -> " 42 ", -3 -> "-3 ".
std::string paddedNumber(int64_t value);
// Lower case, every blank and every "?" replaced by "_".
std::string pCleanName(const std::string& name);

// ---- Template scan ----------------------------------------------------------------

struct TokenScan {
    int32_t firstHash = 0;  // 1-based position of the first "#", 0 if none
    int32_t secondHash = 0; // 1-based position of the next "#", 0 if none
    std::string token;      // text strictly between them
};
TokenScan pScanToken(const std::string& line);

// ---- The exporter -------------------------------------------------------------------

class ObjectBones;
using ObjectBonesCollection = std::vector<std::shared_ptr<ObjectBones>>;

// The fields of the main class that the X writers read and write.
struct XFileContext {
    const std::string& strTemplateFile;
    SGObjectPtr& cgExportGroup;
    SGScenePtr& SceneGraph;
    const std::string& strFriendlyName;
    const std::string& strGuid;
    ObjectBonesCollection& colObjectBones;
    int32_t& lMaterialFieldId;
    int32_t& lAttachFieldId;
    std::function<void(const std::string&)> AppendStatus;
    platform::Clock& clock;
    platform::Progress* progress = nullptr;
};

class XFileExporter {
public:
    explicit XFileExporter(XFileContext& fields) : f_(fields) {}

    // Writes the X file: copies the template line by line and expands its tokens.
    // cgExportGroup may be moved to the last LOD child written.
    void pExportFSX(std::string& strOutputFile, SGObjectPtr& cgExportGroup);

    // One frame tree: the node's frame and those of all its descendants.
    void pWriteFrame(const SGObjectPtr& node, TextSink& file);
    // The "//" comment tree of the node and its descendants, indented by depth.
    void pWriteHierarchy(const SGObjectPtr& node, TextSink& file, int16_t depth);

private:
    std::string metreFactor(SGUnits& units);
    void writeScene(TextSink& file, SGObjectPtr& cgExportGroup);
    void pWritePartData(const SGObjectPtr& node, TextSink& file);
    void pWriteMatrix(const SGObjectPtr& node, TextSink& file);
    void pWriteBoneInfo(const SGObjectPtr& node, TextSink& file);
    void pWriteAnimLink(const SGObjectPtr& node, TextSink& file);

    void frameDone();

    XFileContext& f_;
    size_t framesTotal_ = 0;
    size_t framesDone_ = 0;
};

} // namespace tarnvale::xfile
